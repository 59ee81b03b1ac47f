#include <gtest/gtest.h>

#include "RySurface.h"

TEST(Surface, Placeholder) {}
