// libFuzzer harness for polygon rings as map data brings them (tests/support/RingGenerator):
// the bytes choose the seed and the shape (extent, centre, tangled rings, spans, islets a few
// ulps from another ring's edge, edge order). With band 0 the constrained call must end in
// StatusOk with a valid mesh, every ring edge a chain of constraint edges and every crossing
// vertex on two ring edges; or in the documented refusal StatusConstraintFailed with a valid
// mesh of what went in before it. Anything else, or a sanitizer report, is a finding.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "state/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/RingGenerator.h"
#include "support/TestSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::uint64_t seed = 0;
    const rytest::RingShape shape = rytest::ringShapeFromBytes(data, size, seed);
    const rytest::RingInput in = rytest::generateRings(seed, shape);
    RyTriangulation t;
    t.setCDTTolerence(0.0);
    std::srand(unsigned(seed));
    const PkTriangulationStatus status =
        t.delaunayTriangulationWithConstraints(in.points, in.edges);
    if (in.points.size() < 3) {  // a shape with no rings at all
        if (status == StatusTooFewPoints) return 0;
        std::fprintf(stderr, "FINDING: %zu points, status %d\n", in.points.size(), int(status));
        std::abort();
    }
    rytest::Checks checks;
    checks.crossingsFrom = int(in.points.size());
    checks.inputs = in.edges;
    if (status == StatusOk) checks.required = in.edges;
    std::string found = status == StatusOk || status == StatusConstraintFailed
                            ? rytest::validate(rytest::record(t), checks)
                            : "status " + std::to_string(int(status));
    if (std::getenv("RY_FUZZ_VERBOSE")) {
        std::fprintf(stderr,
                     "seed %llu, %zu points, %zu edges, status %d\n%s\n",
                     static_cast<unsigned long long>(seed),
                     in.points.size(),
                     in.edges.size(),
                     int(status),
                     rytest::describe(in.points, in.edges).c_str());
    }
    if (found.empty()) return 0;
    std::fprintf(stderr, "FINDING: rings, status %d:\n%s\n", int(status), found.c_str());
    std::abort();
}
