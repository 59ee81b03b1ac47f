// The exported handle: every member checks for its record and forwards to it.
#include "RyTriangulation.h"

#include <memory>
#include <stdexcept>

#include "cleanup/DuplicateVertices.h"
#include "driver/Triangulate.h"
#include "finishing/Finishing.h"
#include "state/RyTriangulationImpl.h"

RyTriangulation::RyTriangulation() : impl(new RyTriangulationImpl) {
    impl->options =
        RyTriangulationImpl::bSpatialSort | RyTriangulationImpl::bSplitCrossingConstraints;
}

RyTriangulation::RyTriangulation(int expectedPoints) : impl(nullptr) {
    std::unique_ptr<RyTriangulationImpl> record(new RyTriangulationImpl);
    // The triangle count is formed in double, as the reservation of 2n would overflow int.
    const double triangleCount = 2.0 * double(expectedPoints);
    if (expectedPoints < 0 || triangleCount >= 2147483648.0) {
        throw std::length_error("vector<T> too long");
    }
    record->mesh.triangles.reserve(std::size_t(triangleCount));
    record->mesh.vertices.reserve(std::size_t(expectedPoints));
    impl = record.release();
}

RyTriangulation::RyTriangulation(bool bSpatialSort, bool bSplitCrossingConstraints)
    : impl(new RyTriangulationImpl) {
    impl->options =
        (bSpatialSort ? RyTriangulationImpl::bSpatialSort : 0u) |
        (bSplitCrossingConstraints ? RyTriangulationImpl::bSplitCrossingConstraints : 0u);
}

RyTriangulation::RyTriangulation(const RyTriangulation& other) : impl(nullptr) {
    *this = other;
}

RyTriangulation& RyTriangulation::operator=(const RyTriangulation& other) {
    if (this == &other) return *this;
    // Build the copy first: if it throws, this object keeps its old record untouched.
    RyTriangulationImpl* copy = other.impl ? new RyTriangulationImpl(*other.impl) : nullptr;
    delete impl;
    impl = copy;
    return *this;
}

RyTriangulation::~RyTriangulation() {
    delete impl;
    impl = nullptr;
}

void RyTriangulation::deleteDuplicateVertices(
    std::vector<PkGePoint3d>& points,
    PkConvert2dVertex& plane,
    PkGeTol& /*tol: equality uses the global tolerance*/) {
    if (!impl) return;
    ::deleteDuplicateVertices(points, plane);
}

void RyTriangulation::deleteDuplicateVertices(
    std::vector<PkGePoint3d>& points,
    std::vector<PkMeshEdge>& edges,
    PkConvert2dVertex& plane,
    PkGeTol& /*tol: equality uses the global tolerance*/) {
    if (!impl) return;
    ::deleteDuplicateVertices(points, edges, plane);
}

PkTriangulationStatus RyTriangulation::delaunayTriangulation(
    const std::vector<PkGePoint3d>& points) {
    if (!impl) return StatusLocateFailed;
    return ::delaunayTriangulation(*impl, points);
}

PkTriangulationStatus RyTriangulation::delaunayTriangulationWithConstraints(
    const std::vector<PkGePoint3d>& points, const std::vector<PkMeshEdge>& edges) {
    if (!impl) return StatusLocateFailed;
    return ::delaunayTriangulationWithConstraints(*impl, points, edges);
}

void RyTriangulation::deleteGhostTriangle() {
    if (impl) ::deleteGhostTriangle(impl->mesh, impl->meshTriangles);
}

void RyTriangulation::deleteOuterTrianglesAndHoles() {
    if (!impl) return;
    ::deleteOuterTrianglesAndHoles(
        impl->mesh, impl->constraints, impl->maxIterations, impl->meshTriangles);
}

const std::vector<PkMeshTriangle> RyTriangulation::getMeshTriangles() {
    if (!impl) return {};
    return impl->meshTriangles;
}

const std::vector<PkMeshPoint3d> RyTriangulation::getMeshVertices() {
    if (!impl) return {};
    return impl->mesh.vertices;
}

namespace {
/// What the accessors return without a record.
template <class T>
const std::vector<T>& noEntries() {
    static const std::vector<T> empty;
    return empty;
}
}  // namespace

const std::vector<PkMeshTriangle>& RyTriangulation::meshTriangles() const {
    return impl ? impl->meshTriangles : noEntries<PkMeshTriangle>();
}

const std::vector<PkMeshPoint3d>& RyTriangulation::meshVertices() const {
    return impl ? impl->mesh.vertices : noEntries<PkMeshPoint3d>();
}

std::vector<PkMeshTriangle> RyTriangulation::takeMeshTriangles() {
    if (!impl) return {};
    std::vector<PkMeshTriangle> taken;
    taken.swap(impl->meshTriangles);
    return taken;
}

void RyTriangulation::setProgressCallback(PkProgressCallback callback, void* context) {
    if (!impl) return;
    impl->progress = ProgressReport{callback, context};
}

void RyTriangulation::setCDTTolerence(double tolerance) {
    if (impl) impl->cdtTolerance = tolerance;
}
