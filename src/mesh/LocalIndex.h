/* Position arithmetic inside a triangle.

                v2
               /  \
       n2     /    \     n1
    (v2,v0)  /      \  (v1,v2)
            /        \
          v0 -------- v1
                n0
             (v0,v1)

   Vertices are counter-clockwise; neighbour i lies across the edge from vertex i to vertex i+1,
   so the neighbour opposite vertex k is neighbour nextLocalIndex(k). Walkers always use these two
   functions instead of writing the modulo inline. */
#pragma once

/// The position after i (i in 0..2).
constexpr int nextLocalIndex(int i) {
    return (i + 1) % 3;
}
/// The position before i (i in 0..2).
constexpr int prevLocalIndex(int i) {
    return (i + 2) % 3;
}
