# Reads rytri's deliverables back with readers nobody here wrote (ezdxf, xml.etree, json) and
# checks them against the mesh written beside them (an .obj) and the run's JSON report.
#   DeliverablesCheck.py dxf FILE.dxf MESH.obj REPORT.json
#   DeliverablesCheck.py landxml FILE.xml MESH.obj ID X Y Z   (point ID must be at X Y Z)
#   DeliverablesCheck.py geojson FILE.geojson REPORT.json
import json
import sys
import xml.etree.ElementTree as ElementTree


def fail(message):
    sys.exit("DeliverablesCheck: " + message)


def read_obj(path):
    vertices, faces = [], []
    for line in open(path):
        f = line.split()
        if f and f[0] == "v":
            vertices.append(tuple(float(c) for c in f[1:4]))
        elif f and f[0] == "f":
            faces.append(tuple(int(i) - 1 for i in f[1:4]))
    return vertices, faces


def check_dxf(path, obj, report):
    import ezdxf
    doc = ezdxf.readfile(path)
    auditor = doc.audit()
    if auditor.has_errors:
        fail("ezdxf audit: %s" % [str(e) for e in auditor.errors])
    vertices, faces = read_obj(obj)
    figures = json.load(open(report))
    msp = doc.modelspace()
    by_layer = {}
    for e in msp:
        by_layer.setdefault((e.dxftype(), e.dxf.layer), []).append(e)
    known = set(vertices)
    triangles = by_layer.get(("3DFACE", "TIN"), [])
    if len(triangles) != len(faces) or len(faces) != figures["trianglesKept"]:
        fail("%d 3DFACEs for %d triangles" % (len(triangles), len(faces)))
    for face in triangles:
        corners = [tuple(face.dxf.get("vtx%d" % k)) for k in range(4)]
        if corners[3] != corners[2] or not set(corners) <= known:
            fail("3DFACE corners not mesh vertices: %s" % corners)
    contours = by_layer.get(("POLYLINE", "CONTOUR"), []) + by_layer.get(("POLYLINE", "CONTOUR_INDEX"), [])
    if len(contours) != figures["contourLines"]:
        fail("%d contour polylines, the report says %d" % (len(contours), figures["contourLines"]))
    for line in contours:
        z = line.dxf.elevation[2]
        if line.is_3d_polyline or any(p[2] != z for p in line.points()) or z != round(z):
            fail("contour not at one whole elevation: %s" % z)
        if (line.dxf.layer == "CONTOUR_INDEX") != (z % 5 == 0):
            fail("index contour on the wrong layer: %s" % z)
    for layer, count in (("BOUNDARY", 1), ("HOLE", 2), ("BREAKLINE", 3)):
        lines = by_layer.get(("POLYLINE", layer), [])
        if len(lines) != count or not all(p.is_3d_polyline and set(p.points()) <= known for p in lines):
            fail("expected %d 3D polylines of mesh vertices on %s" % (count, layer))
    layers = {layer.dxf.name for layer in doc.layers}
    if not {"TIN", "BOUNDARY", "HOLE", "BREAKLINE", "CONTOUR", "CONTOUR_INDEX"} <= layers:
        fail("layers missing from the table: %s" % layers)


def check_landxml(path, obj, point_id, x, y, z):
    ns = {"x": "http://www.landxml.org/schema/LandXML-1.2"}
    root = ElementTree.parse(path).getroot()
    vertices, faces = read_obj(obj)
    surfaces = root.findall("x:Surfaces/x:Surface", ns)
    if root.get("version") != "1.2" or root.find("x:Units/x:Metric", ns) is None or len(surfaces) != 1:
        fail("not a LandXML 1.2 file with units and one surface")
    definition = surfaces[0].find("x:Definition", ns)
    points = definition.findall("x:Pnts/x:P", ns)
    if definition.get("surfType") != "TIN" or len(points) != len(vertices):
        fail("%d points for %d vertices" % (len(points), len(vertices)))
    ids = {p.get("id"): tuple(float(c) for c in p.text.split()) for p in points}
    if ids.get(point_id) != (float(y), float(x), float(z)):  # northing, easting, elevation
        fail("point %s is %s, not northing %s easting %s" % (point_id, ids.get(point_id), y, x))
    if {(n, e, h) for (e, n, h) in vertices} != set(ids.values()):
        fail("the points are not the mesh's vertices")
    position = {i: (e, n, h) for i, (n, e, h) in ids.items()}
    index = {v: k for k, v in enumerate(vertices)}
    mesh_faces = {frozenset(f) for f in faces}
    for f in definition.findall("x:Faces/x:F", ns):
        if frozenset(index[position[i]] for i in f.text.split()) not in mesh_faces:
            fail("face %s is not a mesh triangle" % f.text)
    if len(definition.findall("x:Faces/x:F", ns)) != len(faces):
        fail("face count")
    source = surfaces[0].find("x:SourceData", ns)
    kinds = sorted(b.get("bndType") for b in source.findall("x:Boundaries/x:Boundary", ns))
    if kinds != ["outer", "void"] or len(source.findall("x:Breaklines/x:Breakline", ns)) != 1:
        fail("source data: boundaries %s" % kinds)


def check_geojson(path, report):
    data = json.load(open(path))
    figures = json.load(open(report))
    features = data["features"]
    if data["type"] != "FeatureCollection" or len(features) != figures["contourLines"]:
        fail("%d features, the report says %d" % (len(features), figures["contourLines"]))
    for f in features:
        coordinates = f["geometry"]["coordinates"]
        if f["geometry"]["type"] != "LineString" or len(coordinates) < 2:
            fail("not a LineString")
        if any(c[2] != f["properties"]["elevation"] for c in coordinates):
            fail("a contour off its elevation")


mode = sys.argv[1]
{"dxf": check_dxf, "landxml": check_landxml, "geojson": check_geojson}[mode](*sys.argv[2:])
print("DeliverablesCheck %s: ok" % mode)
