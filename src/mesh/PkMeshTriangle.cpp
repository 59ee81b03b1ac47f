#include "PkMeshTriangle.h"

#include <type_traits>

namespace {

int clampPosition(int k) {
    return k <= 0 ? 0 : (k >= 2 ? 2 : 1);
}

}  // namespace

static_assert(sizeof(PkMeshTriangle) == 7 * sizeof(int), "PkMeshTriangle must stay 28 bytes");
static_assert(std::is_trivially_copyable<PkMeshTriangle>::value,
              "PkMeshTriangle copies must stay plain memory copies");

bool PkMeshTriangle::isGhostTri() {
    return vertex[0] < 0 || vertex[1] < 0 || vertex[2] < 0;
}

bool PkMeshTriangle::isAux() {
    return (flags & 1u) != 0;
}

void PkMeshTriangle::setFlagbAux(bool aux) {
    flags = aux ? (flags | 1u) : (flags & ~1u);
}

int PkMeshTriangle::getVertexIndexAt(int k) const {
    return vertex[clampPosition(k)];
}

int PkMeshTriangle::getNeighborIndex(int k) const {
    return neighbor[clampPosition(k)];
}

void PkMeshTriangle::setVertexIndex(int v0, int v1, int v2) {
    vertex[0] = v0;
    vertex[1] = v1;
    vertex[2] = v2;
}

void PkMeshTriangle::setVertexIndexAt(int value, int k) {
    vertex[clampPosition(k)] = value;
}

void PkMeshTriangle::setNeighborIndex(int n0, int n1, int n2) {
    neighbor[0] = n0;
    neighbor[1] = n1;
    neighbor[2] = n2;
}

void PkMeshTriangle::setNeighborIndexAt(int value, int k) {
    neighbor[clampPosition(k)] = value;
}

bool PkMeshTriangle::updateNeighborIndexAt(int newIndex, int oldIndex) {
    for (int& n : neighbor) {
        if (n == oldIndex) {
            n = newIndex;
            return true;
        }
    }
    return false;
}

bool PkMeshTriangle::getOpposedTriangle(int v, int& triangle) const {
    if (vertex[0] == v) {
        triangle = neighbor[1];
    } else if (vertex[1] == v) {
        triangle = neighbor[2];
    } else if (vertex[2] == v) {
        triangle = neighbor[0];
    } else {
        return false;
    }
    return true;
}

bool PkMeshTriangle::isContain(int v) {
    return vertex[0] == v || vertex[1] == v || vertex[2] == v;
}

int PkMeshTriangle::getNeighborIndex(int a, int b) const {
    if (vertex[0] == a) return vertex[1] == b ? neighbor[0] : neighbor[2];
    if (vertex[0] == b) return vertex[1] == a ? neighbor[0] : neighbor[2];
    return neighbor[1];
}

int PkMeshTriangle::getLocalVertexIndex(int v) const {
    if (vertex[0] == v) return 0;
    if (vertex[1] == v) return 1;
    return 2;
}

int PkMeshTriangle::getLocalNeighborIndex(int triangle) const {
    if (neighbor[0] == triangle) return 0;
    if (neighbor[1] == triangle) return 1;
    return 2;
}
