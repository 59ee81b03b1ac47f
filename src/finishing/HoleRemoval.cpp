#include "mesh/RyTriangulationImpl.h"

// Placeholder until hole removal lands.
void RyTriangulationImpl::deleteOuterTrianglesAndHoles() {}
