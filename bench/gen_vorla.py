#!/usr/bin/env python3
"""Writes a large synthetic Vorla archive for the load benchmark.

    python3 bench/gen_vorla.py --instances N [--depth D] [--fanout F] [--parts P]
                               [--seed S] [--store] OUT.vorla

The archive holds "Manifest.xml" and the root document "Assembly.vorla": a tree of
assembly references (D levels, F sub-assemblies each), P part references shared by many
instances, exactly N instances, representation references, instances and formats for every
part, graphic properties, inline representations (base64 data and tessellated meshes),
graphic materials, a default view and alternate views. The same arguments and seed give
the same bytes. One JSON line with the element counts goes to stdout.
"""

import argparse
import base64
import json
import math
import random
import sys
import zipfile

ROOT_ENTRY = "Assembly.vorla"
MANIFEST_ENTRY = "Manifest.xml"
# Entry timestamps are fixed so that the archive bytes depend only on the arguments.
ZIP_TIME = (2024, 1, 1, 0, 0, 0)
FLUSH_CHARS = 1 << 20
MATERIAL_COUNT = 20

# Share of instances that own a graphic-properties aspect, and the shares of instances
# that each view overrides; together with the representation sizes below they put the
# root document at about 750 bytes per instance.
GRAPHIC_PROPERTIES_SHARE = 0.25
DEFAULT_VIEW_SHARE = 0.01
# Representation payloads per part: a tessellated XML mesh or binary data, and for some
# parts a second, exact representation.
XML_MESH_SHARE = 0.65
EXACT_SHARE = 0.3
DATA_BYTES = (4096, 16384)

ASSEMBLY_WORDS = [
    "Infeed Conveyor", "Drive Unit", "Frame Assembly", "Gearbox", "Control Cabinet",
    "Lifting Unit", "Gripper Head", "Safety Fence", "Outfeed Conveyor", "Hydraulic Unit",
    "Cooling Unit", "Turntable", "Pick Station", "Tensioner", "Door Module", "Axis Module",
]


def square_section(pattern, side, length):
    return pattern % (side, side, length)


FASTENER_TEMPLATES = [
    lambda r, d: "Bolt M%dx%d" % (d, d * r.randint(2, 10)),
    lambda r, d: "Hex Nut M%d" % d,
    lambda r, d: "Washer M%d" % d,
    lambda r, d: "Socket Screw M%dx%d" % (d, d * r.randint(2, 8)),
    lambda r, d: "Dowel Pin %dx%d" % (d, d * r.randint(2, 6)),
    lambda r, d: "Rivet %dx%d" % (d, d * r.randint(2, 4)),
]
PART_TEMPLATES = [
    lambda r: "Bracket" + r.choice(["-Left", "-Right", "-Upper", "-Lower"]),
    lambda r: "Mounting Plate %dx%d" % (r.randint(4, 40) * 10, r.randint(4, 40) * 10),
    lambda r: "Shaft D%dx%d" % (r.choice([8, 10, 12, 16, 20, 25, 30]), r.randint(5, 60) * 10),
    lambda r: "Bearing 62%02d-2RS" % r.randint(0, 12),
    lambda r: "Spacer %dx%d" % (r.randint(4, 30), r.randint(2, 40)),
    lambda r: "Cover Plate" + r.choice(["-Front", "-Rear", "-Side", ""]),
    lambda r: "Housing" + r.choice(["-Upper", "-Lower", ""]),
    lambda r: "Gear Z%d m%s" % (r.randint(12, 80), r.choice(["1", "1.5", "2", "2.5", "3"])),
    lambda r: "Motor Mount",
    lambda r: "Seal Ring %dx%dx%d" % (r.randint(10, 80), r.randint(82, 120), r.randint(5, 12)),
    lambda r: square_section("Rail %dx%dx%d", r.choice([20, 30, 40]), r.randint(2, 20) * 100),
    lambda r: square_section("Profile %dx%d-%d", r.choice([30, 40, 45, 60]), r.randint(1, 30) * 50),
    lambda r: "Clamp" + r.choice(["-A", "-B", " Quick-Release", ""]),
    lambda r: "Hinge" + r.choice(["-Left", "-Right", ""]),
    lambda r: "Handle %d" % (r.randint(8, 30) * 10),
    lambda r: "Pulley D%d" % (r.randint(3, 30) * 10),
    lambda r: "Sensor Bracket",
    lambda r: "Cable Duct %dx%d" % (r.randint(2, 10) * 10, r.randint(2, 8) * 10),
    lambda r: "Side Panel" + r.choice(["-Left", "-Right"]),
    lambda r: "Guard" + r.choice(["-Front", "-Rear", "-Top"]),
    lambda r: "Coupling D%d" % (r.randint(10, 60)),
]
FASTENER_SIZES = [3, 4, 5, 6, 8, 10, 12, 16]


def axis_rotations():
    """The 24 rotations that map the coordinate axes onto coordinate axes."""
    rots = []
    for perm in ((0, 1, 2), (0, 2, 1), (1, 0, 2), (1, 2, 0), (2, 0, 1), (2, 1, 0)):
        for sx in (1, -1):
            for sy in (1, -1):
                for sz in (1, -1):
                    m = [[0.0] * 3 for _ in range(3)]
                    for row, (col, s) in enumerate(zip(perm, (sx, sy, sz))):
                        m[row][col] = float(s)
                    det = (m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1])
                           - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0])
                           + m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]))
                    if det > 0:
                        rots.append(m)
    return rots


AXIS_ROTATIONS = axis_rotations()


def num(v, digits=6):
    # Adding 0.0 turns -0.0 into 0.0, so no "-0" is written.
    return "%.*g" % (digits, round(v, 6) + 0.0)


AXIS_ROTATION_TEXT = [" ".join(num(v) for row in m for v in row) for m in AXIS_ROTATIONS]


def placement(rng, spread):
    """Twelve numbers: a rotation (row by row) and a translation in mm."""
    k = rng.randrange(len(AXIS_ROTATIONS))
    if rng.random() < 0.3:
        base = AXIS_ROTATIONS[k]
        a = math.radians(rng.choice([15, 30, 45, 60, 120, rng.uniform(0, 360)]))
        c, s = math.cos(a), math.sin(a)
        rz = ((c, -s, 0.0), (s, c, 0.0), (0.0, 0.0, 1.0))
        rotation = " ".join(num(sum(base[i][t] * rz[t][j] for t in range(3)))
                            for i in range(3) for j in range(3))
    else:
        rotation = AXIS_ROTATION_TEXT[k]
    u = rng.uniform
    return "%s %.6g %.6g %.6g" % (rotation, round(u(-spread, spread), 2) + 0.0,
                                  round(u(-spread, spread), 2) + 0.0,
                                  round(u(-spread, spread), 2) + 0.0)


class ChunkWriter:
    """Collects text and hands it to the zip stream in pieces of about FLUSH_CHARS."""

    def __init__(self, stream):
        self._stream = stream
        self._parts = []
        self._pending = 0
        self.total = 0

    def write(self, text):
        self._parts.append(text)
        self._pending += len(text)
        if self._pending >= FLUSH_CHARS:
            self.flush()

    def flush(self):
        if self._parts:
            data = "".join(self._parts).encode("utf-8")
            self._stream.write(data)
            self.total += len(data)
            self._parts = []
            self._pending = 0


class Plan:
    """Everything decided before writing: the tree, the parts, the instances and all ids."""

    def __init__(self, args):
        rng = random.Random(args.seed)
        self.rng = rng
        n = args.instances

        # Assemblies breadth first; sub-assembly instances are kept to a quarter of N so
        # that small documents still consist mostly of part instances.
        self.assembly_parent = [-1]
        self.assembly_level = [0]
        self.assembly_code = [""]
        self.assembly_children = [[]]
        frontier = [0]
        for level in range(1, args.depth):
            nxt = []
            for parent in frontier:
                for k in range(args.fanout):
                    if len(self.assembly_parent) - 1 >= n // 4:
                        break
                    idx = len(self.assembly_parent)
                    self.assembly_parent.append(parent)
                    self.assembly_level.append(level)
                    code = self.assembly_code[parent]
                    code = (code + "-" if code else "") + (chr(65 + k % 26) if level == 1
                                                           else str(k + 1))
                    self.assembly_code.append(code)
                    self.assembly_children.append([])
                    self.assembly_children[parent].append(idx)
                    nxt.append(idx)
            frontier = nxt
        a_count = len(self.assembly_parent)
        self.assembly_names = []
        for i in range(a_count):
            if i == 0:
                self.assembly_names.append("Packaging Line PL-%d" % (100 + args.seed % 900))
            else:
                self.assembly_names.append(rng.choice(ASSEMBLY_WORDS) + " " + self.assembly_code[i])

        # Parts: the first twentieth are fasteners used all over the product.
        p_count = args.parts
        fastener_count = max(1, p_count // 20) if p_count > 1 else p_count
        names = set()
        self.part_names = []
        self.part_size = []
        for j in range(p_count):
            if j < fastener_count:
                d = rng.choice(FASTENER_SIZES)
                name = rng.choice(FASTENER_TEMPLATES)(rng, d)
                size = d * rng.uniform(1.5, 4.0)
            else:
                name = rng.choice(PART_TEMPLATES)(rng)
                size = rng.uniform(15.0, 250.0)
            base, k = name, 1
            while name in names:
                k += 1
                name = "%s-%d" % (base, k)
            names.add(name)
            self.part_names.append(name)
            self.part_size.append(size)

        # Representations of each part: 'xml' (tessellated mesh), 'data' (tessellated
        # binary), 'exact' (exact geometry, binary).
        self.part_reps = []
        for j in range(p_count):
            reps = ["xml" if rng.random() < XML_MESH_SHARE else "data"]
            if rng.random() < EXACT_SHARE:
                reps.append("exact")
            self.part_reps.append(reps)

        # Part instances per assembly: leaf assemblies carry most, the others a few (the
        # fasteners and brackets that join their sub-assemblies).
        part_instances = n - (a_count - 1)
        weights = [1.0 if not self.assembly_children[i] else 0.15 for i in range(a_count)]
        total_w = sum(weights)
        quotas = [int(part_instances * w / total_w) for w in weights]
        rest = part_instances - sum(quotas)
        order = sorted(range(a_count), key=lambda i: -weights[i])
        for i in range(rest):
            quotas[order[i % a_count]] += 1

        # Every non-fastener part has a home assembly where it is used first; fasteners
        # are picked from a small per-assembly selection, most often the first ones.
        homes = [[] for _ in range(a_count)]
        users = [i for i in range(a_count) if quotas[i] > 0]
        for j in range(fastener_count, p_count):
            homes[users[(j - fastener_count) % len(users)]].append(j)
        self.assembly_instances = []
        fastener_pick = 0
        for i in range(a_count):
            chosen = []
            quota = quotas[i]
            own = homes[i]
            chosen.extend(own[:quota])
            kinds = min(fastener_count, rng.randint(2, 6))
            fasteners = [(fastener_pick + t) % fastener_count for t in range(kinds)] \
                if fastener_count else []
            fastener_pick += kinds
            while len(chosen) < quota:
                if fasteners and (not own or rng.random() < 0.55):
                    chosen.append(fasteners[min(int(rng.expovariate(1.0)), kinds - 1)])
                else:
                    chosen.append(rng.choice(own))
            self.assembly_instances.append(chosen)

        # Ids in document order.
        next_id = 1
        self.assembly_id = list(range(next_id, next_id + a_count))
        next_id += a_count
        self.part_id = list(range(next_id, next_id + p_count))
        next_id += p_count
        self.first_instance_id = next_id
        next_id += n
        self.ref_rep_id = list(range(next_id, next_id + p_count))
        next_id += p_count
        self.inst_rep_id = list(range(next_id, next_id + p_count))
        next_id += p_count
        self.rep_ids = []
        for reps in self.part_reps:
            self.rep_ids.append(list(range(next_id, next_id + len(reps))))
            next_id += len(reps)
        self.material_id = list(range(next_id, next_id + MATERIAL_COUNT))
        next_id += MATERIAL_COUNT
        self.view_first_id = next_id

        self.instances = n
        self.part_count = p_count
        self.assembly_count = a_count
        self.rep_format_count = sum(len(r) for r in self.part_reps)
        # For each instance, in id order: the part it places, or -1 for a sub-assembly.
        self.instance_part = []


def mesh_xml(rng, name, size, pad):
    """One Mesh element of a turned part: side, two caps and the rim edges."""
    segs = rng.randint(12, 40)
    rings = rng.randint(2, 8)
    radius = size * rng.uniform(0.15, 0.5)
    height = size * rng.uniform(0.3, 1.5)
    radii = [radius * rng.uniform(0.6, 1.2) for _ in range(rings + 1)]
    heights = [height * k / rings for k in range(rings + 1)]
    cos_sin = [(math.cos(2 * math.pi * j / segs), math.sin(2 * math.pi * j / segs))
               for j in range(segs + 1)]
    pos = []
    nor = []
    for k in range(rings + 1):
        r, z = radii[k], heights[k]
        slope = (radii[max(k - 1, 0)] - radii[min(k + 1, rings)]) / (height / rings * 2)
        inv = 1.0 / math.sqrt(1.0 + slope * slope)
        for c, s in cos_sin:
            pos += (r * c, r * s, z)
            nor += (c * inv, s * inv, slope * inv)
    side_count = (rings + 1) * (segs + 1)
    caps = []
    for k, nz in ((0, -1.0), (rings, 1.0)):
        first = len(pos) // 3
        pos += (0.0, 0.0, heights[k])
        nor += (0.0, 0.0, nz)
        for c, s in cos_sin:
            pos += (radii[k] * c, radii[k] * s, heights[k])
            nor += (0.0, 0.0, nz)
        caps.append(first)
    inner = pad + "  "
    lines = [pad + '<Mesh name="%s">\n' % name,
             inner + "<Positions>" + " ".join(["%.6g" % (round(v, 3) + 0.0) for v in pos])
             + "</Positions>\n",
             inner + "<Normals>" + " ".join(["%.4g" % (round(v, 4) + 0.0) for v in nor])
             + "</Normals>\n"]
    row = segs + 1
    if rng.random() < 0.5:
        tris = []
        for k in range(rings):
            for j in range(segs):
                a, b = k * row + j, (k + 1) * row + j
                tris += (a, a + 1, b, b, a + 1, b + 1)
        lines.append(inner + "<Triangles>" + " ".join(map(str, tris)) + "</Triangles>\n")
    else:
        for k in range(rings):
            strip = []
            for j in range(row):
                strip += ((k + 1) * row + j, k * row + j)
            lines.append(inner + "<Strip>" + " ".join(map(str, strip)) + "</Strip>\n")
    for first in caps:
        fan = [first] + list(range(first + 1, first + 1 + row))
        lines.append(inner + "<Fan>" + " ".join(map(str, fan)) + "</Fan>\n")
    for k in (0, rings):
        rim = list(range(k * row, k * row + row))
        lines.append(inner + "<Polyline>" + " ".join(map(str, rim)) + "</Polyline>\n")
    lines.append(pad + "</Mesh>\n")
    assert side_count + 2 * (row + 1) == len(pos) // 3
    return "".join(lines)


def base64_block(rng, pad):
    size = rng.randint(*DATA_BYTES)
    data = rng.getrandbits(size * 8).to_bytes(size, "little")
    text = base64.encodebytes(data).decode("ascii")
    return "".join(pad + line + "\n" for line in text.splitlines())


def color_attrs(rng, alpha=True):
    text = 'red="%s" green="%s" blue="%s"' % (num(rng.random(), 3), num(rng.random(), 3),
                                              num(rng.random(), 3))
    if alpha:
        text += ' alpha="%s"' % rng.choice(["1", "1", "1", "0.5", "0.25"])
    return text


def graphic_properties(rng, plan, pad, surface=True, lines=True, general=True):
    """A GraphicProperties element: surface colour or material, line and behaviour flags."""
    p1, p2 = pad + "  ", pad + "    "
    out = [pad + '<GraphicProperties xsi:type="GraphicPropertiesType">\n']
    if surface:
        out.append(p1 + '<SurfaceAttributes xsi:type="SurfaceAttributesType">\n')
        if rng.random() < 0.7:
            out.append(p2 + '<Color xsi:type="RGBAColorType" %s/>\n' % color_attrs(rng))
        else:
            out.append(p2 + "<MaterialId>%d</MaterialId>\n" % rng.choice(plan.material_id))
        out.append(p1 + "</SurfaceAttributes>\n")
    if lines:
        out.append(p1 + '<LineAttributes xsi:type="LineAttributesType" lineType="%s" '
                   'thickness="%s">\n' % (rng.choice(["SOLID", "SOLID", "DASHED", "DOTTED",
                                                      "DOT-DASHED", "PHANTOM"]),
                                          rng.choice(["0.13", "0.25", "0.35", "0.5", "1"])))
        out.append(p2 + '<Color xsi:type="RGBAColorType" %s/>\n' % color_attrs(rng, False))
        out.append(p1 + "</LineAttributes>\n")
    if general:
        out.append(p1 + '<GeneralAttributes xsi:type="GeneralAttributesType" visible="%s" '
                   'selectable="%s"/>\n' % ("false" if rng.random() < 0.05 else "true",
                                            "false" if rng.random() < 0.1 else "true"))
    out.append(pad + "</GraphicProperties>\n")
    return "".join(out)


def camera(rng):
    """Position, sight and right vectors of a camera looking at the product's centre."""
    dist = rng.uniform(3000.0, 9000.0)
    az = rng.uniform(0.0, 2.0 * math.pi)
    el = rng.uniform(0.1, 0.8)
    pos = (dist * math.cos(el) * math.cos(az), dist * math.cos(el) * math.sin(az),
           dist * math.sin(el))
    sight = tuple(-c / dist for c in pos)
    right = (-math.sin(az), math.cos(az), 0.0)
    return dist, [" ".join(num(c, 5) for c in v) for v in (pos, sight, right)]


def viewpoint(rng, kind, pad):
    p1 = pad + "  "
    if kind == "custom":
        view = placement(rng, 3000.0)
        proj = "1.81066 0 0 0 2.41421 0 0 0 -1.0002 0 0 -2.0002"
        return (pad + '<Viewpoint xsi:type="CustomViewpoint3DType">\n'
                + p1 + "<ViewMatrix>%s</ViewMatrix>\n" % view
                + p1 + "<ProjectionMatrix>%s</ProjectionMatrix>\n" % proj
                + pad + "</Viewpoint>\n")
    dist, (pos, sight, right) = camera(rng)
    if kind == "perspective":
        head = ('<Viewpoint xsi:type="PerspectiveViewpointType" targetDistance="%s" '
                'nearPlaneDistance="10" farPlaneDistance="100000" fieldOfView="%s">\n'
                % (num(dist, 5), num(rng.uniform(0.5, 1.0), 4)))
    else:
        head = ('<Viewpoint xsi:type="ParallelViewpointType" targetDistance="%s" '
                'visualizedHeight="%s">\n' % (num(dist, 5), num(rng.uniform(500, 4000), 5)))
    return (pad + head
            + p1 + "<Position>%s</Position>\n" % pos
            + p1 + "<Sight>%s</Sight>\n" % sight
            + p1 + "<Right>%s</Right>\n" % right
            + p1 + "<Up>0 0 1</Up>\n"
            + pad + "</Viewpoint>\n")


# The alternate views: name, description, viewpoint kind, share of instances overridden,
# and what each override carries.
ALTERNATE_VIEWS = [
    ("Exploded", "Sub-assemblies moved apart along their mounting axes", "perspective",
     0.18, "position"),
    ("Service access", "Guards and covers hidden for maintenance", "parallel", 0.12, "hide"),
    ("Paint check", "Surface colours of the coated parts", "custom", 0.15, "color"),
    ("Simplified", "Light representations for large-scale review", "perspective", 0.12,
     "representation"),
]


def write_document(w, plan, args):
    rng = plan.rng
    w.write('<?xml version="1.0" encoding="UTF-8"?>\n'
            '<Model_vorla xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">\n'
            "  <Header>\n"
            "    <SchemaVersion>2.0</SchemaVersion>\n"
            "    <Title>%s</Title>\n"
            "    <Author>KalVorlaImportTools load benchmark</Author>\n"
            "    <Generator>gen_vorla.py seed %d</Generator>\n"
            "    <Created>2024-01-01T00:00:00</Created>\n"
            "  </Header>\n"
            '  <ProductStructure root="%d">\n'
            % (plan.assembly_names[0], args.seed, plan.assembly_id[0]))

    for i in range(plan.assembly_count):
        w.write('    <Reference3D xsi:type="Reference3DType" id="%d" name="%s"/>\n'
                % (plan.assembly_id[i], plan.assembly_names[i]))
    for j in range(plan.part_count):
        w.write('    <Reference3D xsi:type="Reference3DType" id="%d" name="%s"/>\n'
                % (plan.part_id[j], plan.part_names[j]))

    counters = {}
    next_id = plan.first_instance_id
    instance_part = plan.instance_part
    for i in range(plan.assembly_count):
        parent = plan.assembly_id[i]
        targets = [(plan.assembly_id[c], plan.assembly_names[c], 2000.0, -1)
                   for c in plan.assembly_children[i]]
        targets += [(plan.part_id[j], plan.part_names[j], 600.0, j)
                    for j in plan.assembly_instances[i]]
        for ref_id, name, spread, part in targets:
            k = counters.get(ref_id, 0) + 1
            counters[ref_id] = k
            w.write('    <Instance3D xsi:type="Instance3DType" id="%d" name="%s.%d">\n'
                    "      <IsAggregatedBy>%d</IsAggregatedBy>\n"
                    "      <IsInstanceOf>urn:VORLA:Reference:loc:%d</IsInstanceOf>\n"
                    "      <RelativeMatrix>%s</RelativeMatrix>\n"
                    "    </Instance3D>\n"
                    % (next_id, name, k, parent, ref_id, placement(rng, spread)))
            instance_part.append(part)
            next_id += 1
    assert next_id - plan.first_instance_id == plan.instances

    for j in range(plan.part_count):
        fmt = "EXACT" if plan.part_reps[j][0] == "exact" else "TESSELLATED"
        w.write('    <ReferenceRep xsi:type="ReferenceRepType" id="%d" name="%s shape" '
                'format="%s" version="1.0"/>\n' % (plan.ref_rep_id[j], plan.part_names[j], fmt))
    for j in range(plan.part_count):
        w.write('    <InstanceRep xsi:type="InstanceRepType" id="%d" name="%s shape.1">\n'
                "      <IsAggregatedBy>%d</IsAggregatedBy>\n"
                "      <IsInstanceOf>urn:VORLA:Reference:loc:%d</IsInstanceOf>\n"
                "    </InstanceRep>\n"
                % (plan.inst_rep_id[j], plan.part_names[j], plan.part_id[j],
                   plan.ref_rep_id[j]))
    for j in range(plan.part_count):
        for kind, rep_id in zip(plan.part_reps[j], plan.rep_ids[j]):
            w.write('    <RepFormat xsi:type="RepFormatType" owner="%d" '
                    'associatedFile="urn:VORLA:Representation:loc:%d">\n'
                    "      <format>%s</format>\n"
                    "      <version>1.0</version>\n"
                    "    </RepFormat>\n"
                    % (plan.ref_rep_id[j], rep_id,
                       "EXACT" if kind == "exact" else "TESSELLATED"))

    aspects = 0
    for offset in range(plan.instances):
        if rng.random() < GRAPHIC_PROPERTIES_SHARE:
            aspects += 1
            w.write('    <GraphicProperties xsi:type="GraphicPropertiesAspectType" '
                    'aspectOwner="%d">\n' % (plan.first_instance_id + offset))
            w.write(graphic_properties(rng, plan, "      ", lines=rng.random() < 0.4,
                                       general=rng.random() < 0.5))
            w.write("    </GraphicProperties>\n")
    w.write("  </ProductStructure>\n")

    w.write("  <GeometricRepresentationSet>\n")
    for j in range(plan.part_count):
        for kind, rep_id in zip(plan.part_reps[j], plan.rep_ids[j]):
            fmt = "EXACT" if kind == "exact" else "TESSELLATED"
            w.write('    <Representation id="%d" format="%s" version="1.0">\n' % (rep_id, fmt))
            if kind == "xml":
                w.write("      <AssociatedXML>\n")
                meshes = 2 if rng.random() < 0.2 else 1
                for m in range(meshes):
                    w.write(mesh_xml(rng, "body" if m == 0 else "insert",
                                     plan.part_size[j] * (1.0 if m == 0 else 0.5),
                                     "        "))
                w.write("      </AssociatedXML>\n")
            else:
                w.write("      <AssociatedData>\n")
                w.write(base64_block(rng, "        "))
                w.write("      </AssociatedData>\n")
            w.write("    </Representation>\n")
    w.write("  </GeometricRepresentationSet>\n")

    w.write("  <GraphicMaterialSet>\n")
    kinds = ["ColorMaterialType", "AdvancedMaterialType", "TextureMaterialType"]
    finishes = ["Steel", "Aluminium", "Brass", "Rubber", "ABS", "Polyamide", "Glass",
                "Painted", "Anodised", "Zinc-plated"]
    for m, mat_id in enumerate(plan.material_id):
        kind = kinds[0] if m % 4 < 2 else kinds[m % 4 - 1]
        name = "%s %d" % (finishes[m % len(finishes)], m // len(finishes) + 1)
        w.write('    <GraphicMaterial xsi:type="%s" id="%d" name="%s">\n' % (kind, mat_id, name))
        w.write('      <Ambient %s/>\n' % color_attrs(rng))
        w.write('      <Diffuse %s/>\n' % color_attrs(rng))
        if kind != "ColorMaterialType":
            w.write('      <Specular %s shininess="%s"/>\n'
                    % (color_attrs(rng), num(rng.uniform(0.05, 0.9), 3)))
        if kind == "TextureMaterialType":
            w.write("      <TextureImage>textures/%s.png</TextureImage>\n" % name.replace(" ", "_"))
        w.write("    </GraphicMaterial>\n")
    w.write("  </GraphicMaterialSet>\n")

    w.write('  <DefaultView name="Default">\n')
    w.write(viewpoint(rng, "perspective", "    "))
    view_properties = write_view_properties(w, plan, rng, "DefaultViewProperty",
                                            DEFAULT_VIEW_SHARE, "hide")
    w.write("  </DefaultView>\n")

    w.write("  <AlternateViewSet>\n")
    for v, (name, description, kind, share, carries) in enumerate(ALTERNATE_VIEWS):
        w.write('    <AlternateView id="%d" name="%s">\n' % (plan.view_first_id + v, name))
        w.write("      <Description>%s</Description>\n" % description)
        w.write(viewpoint(rng, kind, "      "))
        view_properties += write_view_properties(w, plan, rng, "AlternateViewProperty",
                                                 share, carries, "      ")
        w.write("    </AlternateView>\n")
    w.write("  </AlternateViewSet>\n")
    w.write("</Model_vorla>\n")
    return aspects, view_properties


def write_view_properties(w, plan, rng, tag, share, carries, pad="    "):
    p1, p2 = pad + "  ", pad + "    "
    count = 0
    for offset in range(plan.instances):
        if rng.random() >= share:
            continue
        part = plan.instance_part[offset]
        if carries == "representation" and part < 0:
            continue
        count += 1
        out = [pad + "<%s>\n" % tag,
               p1 + "<OccurenceId>%d</OccurenceId>\n" % (plan.first_instance_id + offset)]
        if carries == "position":
            out.append(p1 + "<RelativePosition>%s</RelativePosition>\n"
                       % placement(rng, 2500.0))
        elif carries == "hide":
            out.append(p1 + '<GraphicProperties xsi:type="GraphicPropertiesType">\n'
                       + p2 + '<GeneralAttributes xsi:type="GeneralAttributesType" '
                       'visible="false" selectable="false"/>\n'
                       + p1 + "</GraphicProperties>\n")
        elif carries == "color":
            out.append(graphic_properties(rng, plan, p1, lines=False, general=False))
        else:
            out.append(p1 + "<AlternateRepresentation>urn:VORLA:Representation:loc:%d"
                       "</AlternateRepresentation>\n" % plan.rep_ids[part][-1])
        out.append(pad + "</%s>\n" % tag)
        w.write("".join(out))
    return count


def zip_info(name, compression):
    info = zipfile.ZipInfo(name, date_time=ZIP_TIME)
    info.compress_type = compression
    info.create_system = 3
    info.external_attr = 0o644 << 16
    return info


def main(argv=None):
    parser = argparse.ArgumentParser(description="Writes a synthetic Vorla archive.")
    parser.add_argument("--instances", type=int, required=True,
                        help="number of Instance3D elements")
    parser.add_argument("--depth", type=int, default=4, help="levels of assemblies")
    parser.add_argument("--fanout", type=int, default=8, help="sub-assemblies per assembly")
    parser.add_argument("--parts", type=int, default=None,
                        help="leaf part references (default: instances / 100, at least 1)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--store", action="store_true", help="stored entries, no deflate")
    parser.add_argument("output")
    args = parser.parse_args(argv)
    if args.instances < 1 or args.depth < 1 or args.fanout < 1:
        parser.error("--instances, --depth and --fanout must be at least 1")
    if args.parts is None:
        args.parts = max(1, args.instances // 100)
    if args.parts < 1:
        parser.error("--parts must be at least 1")

    plan = Plan(args)
    compression = zipfile.ZIP_STORED if args.store else zipfile.ZIP_DEFLATED
    manifest = ('<?xml version="1.0" encoding="UTF-8"?>\n'
                "<Manifest>\n  <Root>%s</Root>\n</Manifest>\n" % ROOT_ENTRY)
    # Past about 2 GB of text the entry needs zip64 sizes, which must be announced up front.
    big = args.instances > 2_000_000
    with zipfile.ZipFile(args.output, "w", compression=compression) as archive:
        archive.writestr(zip_info(MANIFEST_ENTRY, compression), manifest)
        with archive.open(zip_info(ROOT_ENTRY, compression), "w", force_zip64=big) as stream:
            writer = ChunkWriter(stream)
            aspects, view_properties = write_document(writer, plan, args)
            writer.flush()

    counts = {
        "instances": plan.instances,
        "references": plan.assembly_count + plan.part_count,
        "assemblies": plan.assembly_count,
        "parts": plan.part_count,
        "reference_reps": plan.part_count,
        "instance_reps": plan.part_count,
        "rep_formats": plan.rep_format_count,
        "graphic_properties": aspects,
        "representations": plan.rep_format_count,
        "materials": MATERIAL_COUNT,
        "alternate_views": len(ALTERNATE_VIEWS),
        "view_properties": view_properties,
        "root_reference_id": plan.assembly_id[0],
        "first_instance_id": plan.first_instance_id,
        "last_instance_id": plan.first_instance_id + plan.instances - 1,
        "root_xml_bytes": writer.total,
        "root_entry": ROOT_ENTRY,
    }
    sys.stdout.write(json.dumps(counts) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
