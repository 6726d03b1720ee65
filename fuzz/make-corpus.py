#!/usr/bin/env python3
"""Writes the fuzz targets' seed corpora under fuzz/corpus/<target>/: documents in the
shapes the tests build, the example archive and its plain files, tessellation and Qsr
snippets, URNs, value lists and base64 text."""
import io, pathlib, shutil, struct, zipfile

here = pathlib.Path(__file__).resolve().parent
root = here / 'corpus'


def vorla(body, version='1.0'):
    return f'<Model><Header><SchemaVersion>{version}</SchemaVersion></Header>{body}</Model>'


def archive(entries, method=zipfile.ZIP_DEFLATED):
    out = io.BytesIO()
    with zipfile.ZipFile(out, 'w', method) as z:
        for name, content in entries:
            z.writestr(zipfile.ZipInfo(name, (2024, 1, 1, 0, 0, 0)), content, method)
    return out.getvalue()


def read(*path):
    return here.joinpath('..', 'examples', *path).read_bytes()


mesh = ('<Mesh name="m"><Positions>0 0 0 1 0 0 0 1 0 0 0 1</Positions>'
        '<Normals>0 0 1 0 0 1 0 0 1 0 0 1</Normals><Triangles>0 1 2</Triangles>'
        '<Strip>0 1 2 3</Strip><Fan>0 1 2 3</Fan><Polyline>0 1 3</Polyline></Mesh>')
small = vorla(
    '<ProductStructure root="1"><Reference3D xsi:type="Reference3DType" id="1" name="r"/>'
    '<Instance3D xsi:type="Instance3DType" id="2" name="i"><IsAggregatedBy>1</IsAggregatedBy>'
    '<IsInstanceOf>urn:VORLA:Reference:loc:1</IsInstanceOf>'
    '<RelativeMatrix>1 0 0 0 1 0 0 0 1 0 0 0</RelativeMatrix></Instance3D>'
    '<ReferenceRep xsi:type="ReferenceRepType" id="3" name="rr"/>'
    '<InstanceRep xsi:type="InstanceRepType" id="4"><IsAggregatedBy>1</IsAggregatedBy>'
    '<IsInstanceOf>urn:VORLA:Reference:loc:3</IsInstanceOf></InstanceRep>'
    '<RepFormat xsi:type="RepFormatType" owner="3" associatedFile="urn:VORLA:Representation:loc:5">'
    '<format>TESSELLATED</format><version>1.0</version></RepFormat></ProductStructure>'
    '<GeometricRepresentationSet><Representation id="5" format="TESSELLATED" version="1.0">'
    f'<AssociatedXML>{mesh}</AssociatedXML></Representation></GeometricRepresentationSet>')
qsr_mesh = (struct.pack('<I', 1) + b'm' + struct.pack('<4I', 3, 1, 1, 1) +
            struct.pack('<9f', 0, 0, 0, 1, 0, 0, 0, 1, 0) + struct.pack('<9f', *[0, 0, 1] * 3) +
            struct.pack('<3I', 0, 1, 2) + struct.pack('<3I', 2, 0, 1))
qsr = b'QSR1' + struct.pack('<II6f', 7, 1, 0, 0, 0, 1, 1, 0) + qsr_mesh
manifest = '<Manifest><Root>{}</Root></Manifest>'.format

seeds = {
    'fuzz_archive_load': {
        'sample.vorla': read('sample.vorla'),
        'small.vorla': archive([('Manifest.xml', manifest('Root.vorla')), ('Root.vorla', small)]),
        'stored.vorla': archive([('Manifest.xml', manifest('a.vorla')), ('a.vorla', vorla(''))],
                                zipfile.ZIP_STORED),
    },
    'fuzz_plain_load': {'fasteners.vorla': read('sample', 'Fasteners.vorla'), 'small.vorla': small,
                        'newer.vorla': vorla('<ProductStructure root="1"/>', '9.0')},
    'fuzz_document_walk': {'assembly.vorla': read('sample', 'Assembly.vorla'), 'small.vorla': small,
                           'fasteners.vorla': read('sample', 'Fasteners.vorla')},
    'fuzz_xml_parse': {
        'small.xml': small, 'manifest.xml': read('sample', 'Manifest.xml'),
        'doctype.xml': '<?xml version="1.0" encoding="ISO-8859-1"?><!DOCTYPE a [<!ENTITY e '
                       '"x&#65;">]><a b="&e;&lt;"><![CDATA[<c>]]><!-- d --><?pi x?>t&#x20AC;</a>',
    },
    'fuzz_urn_value_list': {
        'loc': 'urn:VORLA:Reference:loc:2', 'ext': 'urn:VORLA:Representation:ext:Other.vorla#401',
        'techrep': 'urn:VORLA:TechRep:loc:7', 'matrix': '1 0 0 0 1 0 0 0 1 0.5 -2 3e2',
        'blanks': ' 1  2 3 ', 'tab': '1\t2 3', 'short': '1 2', 'odd': '0x10 nan -inf .5 1e-400 ',
    },
    'fuzz_tessellation_qsr': {'mesh.xml': mesh, 'two.xml': mesh + '<Mesh name="e"/>',
                              'rep.qsr': qsr,
                              'empty.qsr': b'QSR1' + struct.pack('<II6f', 0, 0, 0, 0, 0, 0, 0, 0)},
    'fuzz_base64': {'padded': 'SGVsbG8gd29ybGQ=', 'short': 'QUI', 'two': 'QQ==',
                    'lines': 'QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVphYmNkZWZnaGlqa2xtbm9w\r\n'
                             'cXJzdHV2d3h5ejAxMjM0NTY3ODkrLw==\n'},
}
shutil.rmtree(root, ignore_errors=True)
for target, files in seeds.items():
    (root / target).mkdir(parents=True)
    for name, content in files.items():
        data = content.encode() if isinstance(content, str) else content
        (root / target / name).write_bytes(data)
