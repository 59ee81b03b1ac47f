#include "PkMeshEdge.h"

PkMeshEdge::PkMeshEdge() : first(-1), second(-1) {}

PkMeshEdge::PkMeshEdge(const PkMeshEdge& other) : first(other.first), second(other.second) {}

PkMeshEdge::PkMeshEdge(int a, int b) : first(-1), second(-1) {
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
        first = -1;
        second = -1;
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
