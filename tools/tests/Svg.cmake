# Pictures of large meshes are thinned, and say so; small ones draw every triangle.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

run_rytri(EXIT 0 ARGS "${DATA}/cloud.xyz" --svg big.svg --svg-limit 100)
check(svg big.svg --contains "Thinned for display: 783 triangles are more than 100" --lacks "<path d=\"M"
      --contains "<rect x=")
run_rytri(EXIT 0 ARGS "${DATA}/site.poly" --svg small.svg)
check(svg small.svg --contains "<path d=\"M" --lacks "Thinned")
# Removed triangles are outlined only when the picture is not thinned.
run_rytri(EXIT 0 ARGS "${DATA}/site.poly" --svg thin.svg --svg-limit 250)
check(svg thin.svg --contains "removed triangles (outside or in holes) not drawn")
