#!/usr/bin/env python3
"""Writes the XML sources of the bundled sample document into examples/sample/.

The sample is a desk lamp (millimetres, Z up): a base assembly (plate, four rubber feet and
four screws holding the pillar flange) and an arm assembly (pillar with its arm, and a head
assembly with the shade and the bulb). The screw lives in a second document of the archive,
Fasteners.vorla, and is placed from Assembly.vorla through external URNs.

The meshes (boxes, cylinders, a frustum, a sphere) are generated here, checked (indices in
range, triangles wound counter-clockwise seen from outside) and written as tessellation XML;
the feet are written as base64 of a Qsr buffer. The output depends on nothing but this
script, so running it twice gives the same bytes. Standard library only.
"""

import base64
import math
import os
import struct
import sys
import textwrap
from xml.sax.saxutils import escape, quoteattr

OUT_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "examples", "sample")
SEGMENTS = 16  # around every cylinder, frustum and sphere

# ---------------------------------------------------------------------------------------
# Numbers
# ---------------------------------------------------------------------------------------


def num(value, decimals=4):
    """A short decimal text: fixed decimals, trailing zeros dropped, never "-0"."""
    text = f"{value:.{decimals}f}".rstrip("0").rstrip(".")
    return "0" if text in ("-0", "") else text


def rounded(value, decimals=4):
    return float(num(value, decimals))


def sub(a, b):
    return (a[0] - b[0], a[1] - b[1], a[2] - b[2])


def add(a, b):
    return (a[0] + b[0], a[1] + b[1], a[2] + b[2])


def scale(a, s):
    return (a[0] * s, a[1] * s, a[2] * s)


def dot(a, b):
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def unit(a):
    length = math.sqrt(dot(a, a))
    return (a[0] / length, a[1] / length, a[2] / length)


# ---------------------------------------------------------------------------------------
# Placements: a 3x3 rotation given by its columns, and a translation
# ---------------------------------------------------------------------------------------


class Placement:
    def __init__(self, columns=((1, 0, 0), (0, 1, 0), (0, 0, 1)), translation=(0, 0, 0)):
        self.columns = tuple(tuple(rounded(c, 6) for c in column) for column in columns)
        self.translation = tuple(float(t) for t in translation)

    def apply(self, p):
        cx, cy, cz = self.columns
        return add(add(add(scale(cx, p[0]), scale(cy, p[1])), scale(cz, p[2])), self.translation)

    def rotate(self, v):
        cx, cy, cz = self.columns
        return add(add(scale(cx, v[0]), scale(cy, v[1])), scale(cz, v[2]))

    def then(self, parent):
        """This placement expressed in the parent's parent frame (parent applied after)."""
        return Placement(tuple(parent.rotate(c) for c in self.columns),
                         parent.apply(self.translation))

    def text(self):
        values = [c for column in self.columns for c in column] + list(self.translation)
        return " ".join(num(v, 6) for v in values)


def about_z(degrees, translation):
    a = math.radians(degrees)
    return Placement(((math.cos(a), math.sin(a), 0), (-math.sin(a), math.cos(a), 0), (0, 0, 1)),
                     translation)


def about_y(degrees, translation):
    a = math.radians(degrees)
    return Placement(((math.cos(a), 0, -math.sin(a)), (0, 1, 0), (math.sin(a), 0, math.cos(a))),
                     translation)


IDENTITY = Placement()

# ---------------------------------------------------------------------------------------
# Meshes
# ---------------------------------------------------------------------------------------


class Mesh:
    """Positions, optional normals, and faces as plain triangles, strips and fans."""

    def __init__(self, name, closed):
        self.name = name
        self.closed = closed  # a closed surface: its enclosed volume must come out positive
        self.positions = []
        self.normals = []
        self.triangles = []  # (i, j, k)
        self.strips = []  # index lists
        self.fans = []  # index lists
        self.polylines = []  # index lists

    def vertex(self, p, n=None):
        self.positions.append(tuple(rounded(c) for c in p))
        if n is not None:
            self.normals.append(tuple(rounded(c) for c in unit(n)))
        return len(self.positions) - 1

    def transformed(self, placement):
        """A copy with positions and normals moved by `placement` (a rotation keeps winding)."""
        mesh = Mesh(self.name, self.closed)
        mesh.positions = [tuple(rounded(c) for c in placement.apply(p)) for p in self.positions]
        mesh.normals = [tuple(rounded(c) for c in unit(placement.rotate(n)))
                        for n in self.normals]
        mesh.triangles = list(self.triangles)
        mesh.strips = [list(s) for s in self.strips]
        mesh.fans = [list(f) for f in self.fans]
        mesh.polylines = [list(p) for p in self.polylines]
        return mesh

    def all_triangles(self):
        """Every triangle, in the order the library reads them: plain ones, strips, fans."""
        result = list(self.triangles)
        for strip in self.strips:
            for k in range(len(strip) - 2):
                a, b, c = strip[k], strip[k + 1], strip[k + 2]
                result.append((a, b, c) if k % 2 == 0 else (b, a, c))
        for fan in self.fans:
            for k in range(len(fan) - 2):
                result.append((fan[0], fan[k + 1], fan[k + 2]))
        return result

    def check(self):
        count = len(self.positions)
        if self.normals and len(self.normals) != count:
            fail(self, "normal count differs from vertex count")
        indices = [i for t in self.all_triangles() for i in t]
        indices += [i for line in self.polylines for i in line]
        if any(i < 0 or i >= count for i in indices):
            fail(self, "index out of range")
        volume = 0.0
        for a, b, c in self.all_triangles():
            pa, pb, pc = self.positions[a], self.positions[b], self.positions[c]
            face = cross(sub(pb, pa), sub(pc, pa))
            if dot(face, face) < 1e-12:
                fail(self, f"degenerate triangle {a} {b} {c}")
            if self.normals:
                average = add(add(self.normals[a], self.normals[b]), self.normals[c])
                if dot(face, average) <= 0:
                    fail(self, f"triangle {a} {b} {c} wound against its normals")
            volume += dot(pa, cross(pb, pc)) / 6.0
        if self.closed and volume <= 0:
            fail(self, f"enclosed volume {volume} is not positive (inward winding)")


def fail(mesh, message):
    sys.exit(f"make-sample.py: mesh {mesh.name}: {message}")


def box(name, size_x, size_y, size_z, origin=(0, 0, 0)):
    """An axis-aligned box from `origin` (centre of its bottom face), flat-shaded."""
    mesh = Mesh(name, closed=True)
    ox, oy, oz = origin
    hx, hy = size_x / 2.0, size_y / 2.0
    # Each face: outward normal and its four corners counter-clockwise seen from outside.
    faces = [
        ((0, 0, -1), [(-hx, -hy, 0), (-hx, hy, 0), (hx, hy, 0), (hx, -hy, 0)]),
        ((0, 0, 1), [(-hx, -hy, size_z), (hx, -hy, size_z), (hx, hy, size_z), (-hx, hy, size_z)]),
        ((0, -1, 0), [(-hx, -hy, 0), (hx, -hy, 0), (hx, -hy, size_z), (-hx, -hy, size_z)]),
        ((1, 0, 0), [(hx, -hy, 0), (hx, hy, 0), (hx, hy, size_z), (hx, -hy, size_z)]),
        ((0, 1, 0), [(hx, hy, 0), (-hx, hy, 0), (-hx, hy, size_z), (hx, hy, size_z)]),
        ((-1, 0, 0), [(-hx, hy, 0), (-hx, -hy, 0), (-hx, -hy, size_z), (-hx, hy, size_z)]),
    ]
    for normal, corners in faces:
        first = len(mesh.positions)
        for x, y, z in corners:
            mesh.vertex((ox + x, oy + y, oz + z), normal)
        mesh.triangles += [(first, first + 1, first + 2), (first, first + 2, first + 3)]
    return mesh


def ring(radius, z, segments=SEGMENTS):
    return [(radius * math.cos(2 * math.pi * i / segments),
             radius * math.sin(2 * math.pi * i / segments), z) for i in range(segments)]


def cylinder(name, radius, z0, z1, normals=True, segments=SEGMENTS):
    """A closed cylinder along Z: the side as one strip, each cap as one fan."""
    mesh = Mesh(name, closed=True)
    bottom, top = ring(radius, z0, segments), ring(radius, z1, segments)

    def vertex(p, n):
        return mesh.vertex(p, n if normals else None)

    # Side: smooth normals; the strip runs top, bottom, top, bottom... which winds outward.
    side_top = [vertex(p, (p[0], p[1], 0)) for p in top]
    side_bottom = [vertex(p, (p[0], p[1], 0)) for p in bottom]
    strip = []
    for i in list(range(segments)) + [0]:
        strip += [side_top[i], side_bottom[i]]
    mesh.strips.append(strip)
    # Top cap: centre, then the rim counter-clockwise seen from above.
    centre = vertex((0, 0, z1), (0, 0, 1))
    rim = [vertex(p, (0, 0, 1)) for p in top]
    mesh.fans.append([centre] + rim + [rim[0]])
    # Bottom cap: centre, then the rim clockwise seen from above (counter-clockwise from below).
    centre = vertex((0, 0, z0), (0, 0, -1))
    rim = [vertex(p, (0, 0, -1)) for p in bottom]
    mesh.fans.append([centre] + [rim[0]] + rim[::-1])
    return mesh


def shade(name, top_radius, bottom_radius, z_top, z_bottom, segments=SEGMENTS):
    """An open frustum (wide end down) closed at the top, without normals; its rim as a
    polyline."""
    mesh = Mesh(name, closed=False)
    top = [mesh.vertex(p) for p in ring(top_radius, z_top, segments)]
    bottom = [mesh.vertex(p) for p in ring(bottom_radius, z_bottom, segments)]
    strip = []
    for i in list(range(segments)) + [0]:
        strip += [top[i], bottom[i]]
    mesh.strips.append(strip)
    centre = mesh.vertex((0, 0, z_top))
    mesh.fans.append([centre] + top + [top[0]])
    mesh.polylines.append(bottom + [bottom[0]])
    # Outward: each side triangle faces away from the axis, the cap faces up.
    for a, b, c in mesh.all_triangles():
        pa, pb, pc = mesh.positions[a], mesh.positions[b], mesh.positions[c]
        face = cross(sub(pb, pa), sub(pc, pa))
        middle = scale(add(add(pa, pb), pc), 1 / 3.0)
        outward = (middle[0], middle[1], 0) if centre not in (a, b, c) else (0, 0, 1)
        if dot(face, outward) <= 0:
            fail(mesh, f"triangle {a} {b} {c} faces inward")
    return mesh


def sphere(name, radius, centre, rings=8, segments=SEGMENTS):
    """A UV sphere with smooth normals, as plain triangles."""
    mesh = Mesh(name, closed=True)
    cx, cy, cz = centre

    def point(theta, phi):
        n = (math.sin(theta) * math.cos(phi), math.sin(theta) * math.sin(phi), math.cos(theta))
        return mesh.vertex((cx + radius * n[0], cy + radius * n[1], cz + radius * n[2]), n)

    north = point(0, 0)
    bands = [[point(math.pi * r / rings, 2 * math.pi * s / segments) for s in range(segments)]
             for r in range(1, rings)]
    south = point(math.pi, 0)
    for s in range(segments):
        t = (s + 1) % segments
        mesh.triangles.append((north, bands[0][s], bands[0][t]))
        for r in range(len(bands) - 1):
            upper, lower = bands[r], bands[r + 1]
            mesh.triangles += [(upper[s], lower[s], lower[t]), (upper[s], lower[t], upper[t])]
        mesh.triangles.append((south, bands[-1][t], bands[-1][s]))
    return mesh


# ---------------------------------------------------------------------------------------
# The parts' geometry (each in its part's own frame)
# ---------------------------------------------------------------------------------------

BASE_SIZE, BASE_THICKNESS = 200.0, 20.0
FOOT_RADIUS, FOOT_HEIGHT = 10.0, 5.0
FLANGE_RADIUS, FLANGE_HEIGHT = 30.0, 6.0
POST_RADIUS, POST_TOP = 8.0, 300.0
ARM_RADIUS, ARM_LENGTH, ARM_HEIGHT = 6.0, 180.0, 294.0
SCREW_HEAD_RADIUS, SCREW_HEAD_HEIGHT = 4.25, 5.0  # M5 socket head cap screw
SCREW_SHANK_RADIUS, SCREW_LENGTH = 2.5, 16.0

base_plate_meshes = [box("base plate", BASE_SIZE, BASE_SIZE, BASE_THICKNESS)]
foot_meshes = [cylinder("foot", FOOT_RADIUS, 0.0, FOOT_HEIGHT)]
# The foot's bottom outline, kept as a polyline in the Qsr buffer.
foot_meshes[0].polylines.append(foot_meshes[0].fans[1][1:])
pillar_meshes = [
    cylinder("flange", FLANGE_RADIUS, 0.0, FLANGE_HEIGHT),
    cylinder("post", POST_RADIUS, FLANGE_HEIGHT, POST_TOP),
    # The arm: a cylinder along Z laid along +X (a quarter turn about Y), at the post's top.
    cylinder("arm", ARM_RADIUS, 0.0, ARM_LENGTH).transformed(about_y(90, (0, 0, ARM_HEIGHT))),
]
shade_meshes = [shade("shade", 25.0, 70.0, -10.0, -120.0)]
bulb_meshes = [sphere("bulb", 30.0, (0.0, 0.0, -55.0))]
screw_meshes = [
    cylinder("head", SCREW_HEAD_RADIUS, 0.0, SCREW_HEAD_HEIGHT),
    cylinder("shank", SCREW_SHANK_RADIUS, -SCREW_LENGTH, 0.0),
]
for part in (base_plate_meshes, foot_meshes, pillar_meshes, shade_meshes, bulb_meshes,
             screw_meshes):
    for mesh in part:
        mesh.check()

# ---------------------------------------------------------------------------------------
# Qsr buffers
# ---------------------------------------------------------------------------------------


def qsr(meshes):
    """The Qsr buffer of `meshes`: header, box of all positions (as float32), then each mesh."""
    f32 = lambda v: struct.unpack("<f", struct.pack("<f", v))[0]
    points = [tuple(f32(c) for c in p) for mesh in meshes for p in mesh.positions]
    low = [min(p[axis] for p in points) for axis in range(3)]
    high = [max(p[axis] for p in points) for axis in range(3)]
    out = bytearray(b"QSR1")
    out += struct.pack("<II", 7, len(meshes))
    out += struct.pack("<6f", *low, *high)
    for mesh in meshes:
        name = mesh.name.encode("utf-8")
        triangles = mesh.all_triangles()
        has_normals = 1 if mesh.normals else 0
        out += struct.pack("<I", len(name)) + name
        out += struct.pack("<4I", len(mesh.positions), len(triangles), len(mesh.polylines),
                           has_normals)
        for p in mesh.positions:
            out += struct.pack("<3f", *p)
        for n in mesh.normals:
            out += struct.pack("<3f", *n)
        for t in triangles:
            out += struct.pack("<3I", *t)
        for line in mesh.polylines:
            out += struct.pack("<I", len(line)) + struct.pack(f"<{len(line)}I", *line)
    return bytes(out)


def check_qsr(data, meshes):
    """Reads the buffer back the way the library does and compares it with the meshes."""
    at = 0

    def take(fmt):
        nonlocal at
        values = struct.unpack_from(fmt, data, at)
        at += struct.calcsize(fmt)
        return values

    assert data[:4] == b"QSR1"
    at = 4
    setting, count = take("<II")
    assert setting == 7 and count == len(meshes)
    box_values = take("<6f")
    seen = []
    for mesh in meshes:
        (name_length,) = take("<I")
        name = data[at:at + name_length].decode("utf-8")
        at += name_length
        vertices, triangles, polylines, normals = take("<4I")
        assert name == mesh.name and vertices == len(mesh.positions) and normals in (0, 1)
        positions = take(f"<{3 * vertices}f")
        seen += [positions[i:i + 3] for i in range(0, len(positions), 3)]
        take(f"<{3 * vertices * normals}f")
        indices = take(f"<{3 * triangles}I")
        assert all(i < vertices for i in indices)
        for _ in range(polylines):
            (length,) = take("<I")
            assert all(i < vertices for i in take(f"<{length}I"))
    assert at == len(data), "trailing bytes"
    for axis in range(3):
        assert box_values[axis] == min(p[axis] for p in seen)
        assert box_values[3 + axis] == max(p[axis] for p in seen)


# ---------------------------------------------------------------------------------------
# XML writing
# ---------------------------------------------------------------------------------------


class Xml:
    def __init__(self):
        self.lines = ['<?xml version="1.0" encoding="UTF-8"?>']
        self.depth = 0

    def _attributes(self, attributes):
        return "".join(f" {key}={quoteattr(str(value))}" for key, value in attributes)

    def open(self, tag, *attributes):
        self.lines.append("  " * self.depth + f"<{tag}{self._attributes(attributes)}>")
        self.depth += 1

    def close(self, tag):
        self.depth -= 1
        self.lines.append("  " * self.depth + f"</{tag}>")

    def empty(self, tag, *attributes):
        self.lines.append("  " * self.depth + f"<{tag}{self._attributes(attributes)}/>")

    def text(self, tag, value, *attributes):
        self.lines.append("  " * self.depth +
                          f"<{tag}{self._attributes(attributes)}>{escape(str(value))}</{tag}>")

    def block(self, tag, rows):
        """An element whose text is several indented rows (numbers, base64)."""
        self.open(tag)
        for row in rows:
            self.lines.append("  " * self.depth + row)
        self.depth -= 1
        self.lines.append("  " * self.depth + f"</{tag}>")

    def result(self):
        return "\n".join(self.lines) + "\n"


def rows(items, per_row, separator="  "):
    return [separator.join(items[i:i + per_row]) for i in range(0, len(items), per_row)]


def triples(values):
    return [" ".join(num(c) for c in v) for v in values]


def write_mesh(xml, mesh):
    xml.open("Mesh", ("name", mesh.name))
    xml.block("Positions", rows(triples(mesh.positions), 4))
    if mesh.normals:
        xml.block("Normals", rows(triples(mesh.normals), 4))
    if mesh.triangles:
        xml.block("Triangles", rows([" ".join(map(str, t)) for t in mesh.triangles], 8))
    for strip in mesh.strips:
        xml.block("Strip", rows([str(i) for i in strip], 24, " "))
    for fan in mesh.fans:
        xml.block("Fan", rows([str(i) for i in fan], 24, " "))
    for line in mesh.polylines:
        xml.block("Polyline", rows([str(i) for i in line], 24, " "))
    xml.close("Mesh")


XSI = ("xmlns:xsi", "http://www.w3.org/2001/XMLSchema-instance")


class Document:
    """One Vorla XML file: product structure, representations, presentation."""

    def __init__(self, title, root):
        self.title = title
        self.root = root
        self.structure = []  # callables writing ProductStructure children, in order
        self.representations = []  # (id, version, name, meshes, as_base64)
        self.aspects = []
        self.placed = {}  # reference id -> list of (placement, child id or None)

    def reference(self, ref_id, name):
        self.structure.append(lambda xml: xml.empty(
            "Reference3D", ("xsi:type", "Reference3DType"), ("id", ref_id), ("name", name)))

    def instance(self, inst_id, name, parent, target, placement):
        urn = f"urn:VORLA:Reference:loc:{target}" if isinstance(target, int) else \
            f"urn:VORLA:Reference:ext:{target[0]}#{target[1]}"

        def write(xml):
            xml.open("Instance3D", ("xsi:type", "Instance3DType"), ("id", inst_id), ("name", name))
            xml.text("IsAggregatedBy", parent)
            xml.text("IsInstanceOf", urn)
            xml.text("RelativeMatrix", placement.text())
            xml.close("Instance3D")

        self.structure.append(write)
        self.placed.setdefault(parent, []).append((placement, target))

    def shape(self, owner, rep_ref_id, inst_rep_id, name, rep_id, version):
        """A representation reference, its instance under `owner`, and its format."""
        def write(xml):
            xml.empty("ReferenceRep", ("xsi:type", "ReferenceRepType"), ("id", rep_ref_id),
                      ("name", name))
            xml.open("InstanceRep", ("xsi:type", "InstanceRepType"), ("id", inst_rep_id),
                     ("name", name + ".1"))
            xml.text("IsAggregatedBy", owner)
            xml.text("IsInstanceOf", f"urn:VORLA:Reference:loc:{rep_ref_id}")
            xml.close("InstanceRep")
            xml.open("RepFormat", ("xsi:type", "RepFormatType"), ("owner", rep_ref_id),
                     ("associatedFile", f"urn:VORLA:Representation:loc:{rep_id}"))
            xml.text("format", "TESSELLATED")
            xml.text("version", version)
            xml.close("RepFormat")

        self.structure.append(write)

    def representation(self, rep_id, version, name, meshes, as_base64=False):
        self.representations.append((rep_id, version, name, meshes, as_base64))

    def aspect(self, owner, color=None, material=None, line=None, general=None):
        self.aspects.append((owner, color, material, line, general))

    def write_structure(self, xml):
        xml.open("ProductStructure", ("root", self.root))
        for write in self.structure:
            write(xml)
        for owner, color, material, line, general in self.aspects:
            xml.open("GraphicPropertiesAspect", ("xsi:type", "GraphicPropertiesAspectType"),
                     ("aspectOwner", owner))
            write_graphic_properties(xml, color, material, line, general)
            xml.close("GraphicPropertiesAspect")
        xml.close("ProductStructure")

    def write_representations(self, xml):
        xml.open("GeometricRepresentationSet")
        for rep_id, version, name, meshes, as_base64 in self.representations:
            xml.open("Representation", ("id", rep_id), ("format", "TESSELLATED"),
                     ("version", version), ("name", name))
            if as_base64:
                data = qsr(meshes)
                check_qsr(data, meshes)
                xml.block("AssociatedData",
                          textwrap.wrap(base64.b64encode(data).decode("ascii"), 76))
            else:
                xml.open("AssociatedXML")
                for mesh in meshes:
                    write_mesh(xml, mesh)
                xml.close("AssociatedXML")
            xml.close("Representation")
        xml.close("GeometricRepresentationSet")


def color_attributes(color):
    attributes = [("red", num(color[0], 3)), ("green", num(color[1], 3)),
                  ("blue", num(color[2], 3))]
    if len(color) > 3:
        attributes.append(("alpha", num(color[3], 3)))
    return attributes


def write_graphic_properties(xml, color=None, material=None, line=None, general=None):
    xml.open("GraphicProperties")
    if color is not None or material is not None:
        xml.open("SurfaceAttributes", ("xsi:type", "SurfaceAttributesType"))
        if color is not None:
            xml.empty("Color", *color_attributes(color))
        else:
            xml.text("MaterialId", material)
        xml.close("SurfaceAttributes")
    if line is not None:
        line_type, thickness, line_color = line
        xml.open("LineAttributes", ("xsi:type", "LineAttributesType"), ("lineType", line_type),
                 ("thickness", thickness))
        xml.empty("Color", ("xsi:type", "RGBAColorType"), *color_attributes(line_color))
        xml.close("LineAttributes")
    if general is not None:
        visible, selectable = general
        xml.empty("GeneralAttributes", ("xsi:type", "GeneralAttributesType"),
                  ("visible", "true" if visible else "false"),
                  ("selectable", "true" if selectable else "false"))
    xml.close("GraphicProperties")


def write_header(xml, title):
    xml.open("Header")
    xml.text("SchemaVersion", "2.0")
    xml.text("Title", title)
    xml.text("Author", "KalVorlaImportTools examples")
    xml.text("Generator", "scripts/make-sample.py")
    xml.close("Header")


# ---------------------------------------------------------------------------------------
# Fasteners.vorla: the screw
# ---------------------------------------------------------------------------------------

FASTENERS = "Fasteners.vorla"
SCREW_REF = 2

fasteners = Document("Fasteners", root=1)
fasteners.reference(1, "Fasteners")
fasteners.reference(SCREW_REF, "Socket head cap screw M5x16")
fasteners.instance(100, "Socket head cap screw M5x16.1", 1, SCREW_REF, IDENTITY)
fasteners.shape(SCREW_REF, 200, 300, "Screw shape", 401, "1.0")
fasteners.representation(401, "1.0", "Socket head cap screw M5x16", screw_meshes)
fasteners.aspect(SCREW_REF, color=(0.55, 0.57, 0.6))  # zinc-plated steel, no alpha

# ---------------------------------------------------------------------------------------
# Assembly.vorla: the desk lamp
# ---------------------------------------------------------------------------------------

ROOT = "Assembly.vorla"
LAMP, BASE_ASM, FOOT, BASE_PLATE, ARM_ASM, PILLAR, HEAD_ASM, SHADE, BULB = range(1, 10)
SHADE_INSTANCE, BULB_INSTANCE = 113, 114
WALNUT, ALUMINIUM = 1, 2

lamp = Document("Desk lamp", root=LAMP)
for ref_id, name in ((LAMP, "Desk lamp"), (BASE_ASM, "Base assembly"), (FOOT, "Foot"),
                     (BASE_PLATE, "Base plate"), (ARM_ASM, "Arm assembly"), (PILLAR, "Pillar"),
                     (HEAD_ASM, "Head assembly"), (SHADE, "Shade"), (BULB, "Bulb")):
    lamp.reference(ref_id, name)

# The lamp: the base on the desk (below), and the arm standing on the base plate.
lamp.instance(100, "Base assembly.1", LAMP, BASE_ASM, IDENTITY)
# The base: four feet under the plate's corners, the plate on them, four screws through the
# pillar flange into the plate (turned a quarter more each, as they happen to be tightened).
corner = BASE_SIZE / 2 - 20
for i, (x, y) in enumerate(((-corner, -corner), (corner, -corner), (corner, corner),
                            (-corner, corner))):
    lamp.instance(101 + i, f"Foot.{i + 1}", BASE_ASM, FOOT, Placement(translation=(x, y, 0)))
lamp.instance(105, "Base plate.1", BASE_ASM, BASE_PLATE,
              Placement(translation=(0, 0, FOOT_HEIGHT)))
screw_z = FOOT_HEIGHT + BASE_THICKNESS + FLANGE_HEIGHT
for i, (x, y) in enumerate(((17, 17), (-17, 17), (-17, -17), (17, -17))):
    lamp.instance(106 + i, f"Screw.{i + 1}", BASE_ASM, (FASTENERS, SCREW_REF),
                  about_z(90 * i, (x, y, screw_z)))
lamp.instance(110, "Arm assembly.1", LAMP, ARM_ASM,
              Placement(translation=(0, 0, FOOT_HEIGHT + BASE_THICKNESS)))
# The arm: the pillar, and the head hanging at the end of its arm, tilted 15 degrees away.
lamp.instance(111, "Pillar.1", ARM_ASM, PILLAR, IDENTITY)
lamp.instance(112, "Head assembly.1", ARM_ASM, HEAD_ASM,
              about_y(-15, (ARM_LENGTH, 0, ARM_HEIGHT)))
lamp.instance(SHADE_INSTANCE, "Shade.1", HEAD_ASM, SHADE, IDENTITY)
lamp.instance(BULB_INSTANCE, "Bulb.1", HEAD_ASM, BULB, IDENTITY)

lamp.shape(FOOT, 200, 300, "Foot shape", 401, "1.0")
lamp.shape(BASE_PLATE, 201, 301, "Base plate shape", 402, "1.0")
lamp.shape(PILLAR, 202, 302, "Pillar shape", 403, "2.1")
lamp.shape(SHADE, 203, 303, "Shade shape", 404, "1.0")
lamp.shape(BULB, 204, 304, "Bulb shape", 405, "1.0")

lamp.representation(401, "1.0", "Foot", foot_meshes, as_base64=True)
lamp.representation(402, "1.0", "Base plate", base_plate_meshes)
lamp.representation(403, "2.1", "Pillar", pillar_meshes)
lamp.representation(404, "1.0", "Shade", shade_meshes)
lamp.representation(405, "1.0", "Bulb", bulb_meshes)

lamp.aspect(FOOT, color=(0.12, 0.12, 0.12))  # black rubber, no alpha
lamp.aspect(BASE_PLATE, material=WALNUT)
lamp.aspect(PILLAR, material=ALUMINIUM)
lamp.aspect(SHADE, color=(0.78, 0.12, 0.1, 1), line=("SOLID", "0.5", (0.45, 0.05, 0.04, 1)))
lamp.aspect(BULB_INSTANCE, color=(1, 0.96, 0.82, 0.6), general=(True, False))

# ---------------------------------------------------------------------------------------
# Cameras, aimed at the lamp's bounding box computed from the placed geometry
# ---------------------------------------------------------------------------------------

PART_MESHES = {FOOT: foot_meshes, BASE_PLATE: base_plate_meshes, PILLAR: pillar_meshes,
               SHADE: shade_meshes, BULB: bulb_meshes, (FASTENERS, SCREW_REF): screw_meshes}


def world_points(reference, placement):
    for mesh in PART_MESHES.get(reference, []):
        for p in mesh.positions:
            yield placement.apply(p)
    for child_placement, target in lamp.placed.get(reference, []):
        yield from world_points(target, child_placement.then(placement))


points = list(world_points(LAMP, IDENTITY))
low = [min(p[axis] for p in points) for axis in range(3)]
high = [max(p[axis] for p in points) for axis in range(3)]
centre = tuple(rounded((low[axis] + high[axis]) / 2, 0) for axis in range(3))
head = about_y(-15, (ARM_LENGTH, 0, ARM_HEIGHT)).then(
    Placement(translation=(0, 0, FOOT_HEIGHT + BASE_THICKNESS)))
head_target = tuple(rounded(c, 0) for c in head.apply((0, 0, -60)))


def camera(target, towards_eye, distance):
    """Position, sight, right and up of a camera `distance` from `target`, Z kept up."""
    back = unit(towards_eye)
    position = add(target, scale(back, distance))
    sight = scale(back, -1)
    right = unit(cross(sight, (0, 0, 1)))
    up = cross(right, sight)
    return [("Position", position, 1), ("Sight", sight, 4), ("Right", right, 4), ("Up", up, 4)]


def write_viewpoint(xml, kind, vectors, **attributes):
    xml.open("Viewpoint", ("xsi:type", kind), *attributes.items())
    for tag, vector, decimals in vectors:
        xml.text(tag, " ".join(num(c, decimals) for c in vector))
    xml.close("Viewpoint")


def write_presentation(xml):
    xml.open("GraphicMaterialSet")
    xml.open("GraphicMaterial", ("id", WALNUT), ("xsi:type", "ColorMaterialType"),
             ("name", "Dark walnut"))
    xml.empty("Color", *color_attributes((0.36, 0.22, 0.13, 1)))
    xml.close("GraphicMaterial")
    xml.open("GraphicMaterial", ("id", ALUMINIUM), ("xsi:type", "AdvancedMaterialType"),
             ("name", "Brushed aluminium"), ("transparency", "0"), ("reflectivity", "0.35"),
             ("shininess", "0.6"))
    xml.empty("Ambient", *color_attributes((0.25, 0.25, 0.26)))
    xml.empty("Diffuse", *color_attributes((0.7, 0.71, 0.73)))
    xml.empty("Specular", *color_attributes((0.95, 0.95, 0.95)))
    xml.empty("Emissive", *color_attributes((0, 0, 0)))
    xml.close("GraphicMaterial")
    xml.close("GraphicMaterialSet")

    xml.open("DefaultView", ("name", "Three-quarter view"))
    xml.text("Description", "The whole lamp from the front right, above the shade.")
    write_viewpoint(xml, "PerspectiveViewpointType", camera(centre, (0.55, -1, 0.55), 1100),
                    targetDistance="1100", fieldOfView="0.8", nearPlaneDistance="10",
                    farPlaneDistance="10000")
    xml.close("DefaultView")

    xml.open("AlternateViewSet")
    xml.open("AlternateView", ("id", 1), ("name", "Front"))
    xml.text("Description", "Orthographic front view, with the shade highlighted in yellow.")
    height = num(round((high[2] - low[2]) * 1.25), 0)
    write_viewpoint(xml, "ParallelViewpointType", camera(centre, (0, -1, 0), 1000),
                    targetDistance="1000", visualizedHeight=height)
    xml.open("AlternateViewProperty")
    xml.text("OccurenceId", SHADE_INSTANCE)
    write_graphic_properties(xml, color=(1, 0.85, 0.2, 1))
    xml.close("AlternateViewProperty")
    xml.close("AlternateView")
    xml.open("AlternateView", ("id", 2), ("name", "Head close-up"))
    xml.text("Description", "The shade and bulb seen from below, in front of the lamp.")
    write_viewpoint(xml, "PerspectiveViewpointType", camera(head_target, (0.3, -1, -0.35), 450),
                    targetDistance="450", fieldOfView="0.6", nearPlaneDistance="10",
                    farPlaneDistance="5000")
    xml.close("AlternateView")
    xml.close("AlternateViewSet")


# ---------------------------------------------------------------------------------------
# Output
# ---------------------------------------------------------------------------------------


def document_text(document, presentation=None):
    xml = Xml()
    xml.open("Model_vorla", XSI)
    write_header(xml, document.title)
    document.write_structure(xml)
    document.write_representations(xml)
    if presentation is not None:
        presentation(xml)
    xml.close("Model_vorla")
    return xml.result()


def manifest_text():
    xml = Xml()
    xml.open("Manifest")
    xml.text("Root", ROOT)
    xml.close("Manifest")
    return xml.result()


def main():
    os.makedirs(OUT_DIR, exist_ok=True)
    outputs = {"Manifest.xml": manifest_text(), ROOT: document_text(lamp, write_presentation),
               FASTENERS: document_text(fasteners)}
    for name, text in outputs.items():
        with open(os.path.join(OUT_DIR, name), "w", encoding="utf-8", newline="\n") as out:
            out.write(text)
    print("lamp bounding box (mm): min (%s) max (%s)" % (
        " ".join(num(v, 1) for v in low), " ".join(num(v, 1) for v in high)))


if __name__ == "__main__":
    main()
