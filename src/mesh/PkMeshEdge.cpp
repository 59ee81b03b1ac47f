#include "PkMeshEdge.h"

#include "mesh/MeshFields.h"

PkMeshEdge::PkMeshEdge() : first(NoVertex), second(NoVertex) {}

PkMeshEdge::PkMeshEdge(const PkMeshEdge& other) : first(other.first), second(other.second) {}

PkMeshEdge::PkMeshEdge(int a, int b) : first(NoVertex), second(NoVertex) {
    setEdgeIndex(a, b);
}

void PkMeshEdge::setEdgeIndex(int a, int b) {
    if (a < b) {
        first = a;
        second = b;
    } else if (b < a) {
        first = b;
        second = a;
    } else {
        first = NoVertex;
        second = NoVertex;
    }
}

bool PkMeshEdge::operator==(const PkMeshEdge& other) const {
    return (first == other.first && second == other.second) ||
           (first == other.second && second == other.first);
}

bool PkMeshEdge::operator!=(const PkMeshEdge& other) const {
    return !(*this == other);
}

void PkMeshEdge::operator=(const PkMeshEdge& other) {
    first = other.first;
    second = other.second;
}

int PkMeshEdge::EdgeIndex1() const {
    return first;
}

int PkMeshEdge::EdgeIndex2() const {
    return second;
}
