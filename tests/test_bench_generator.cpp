// The load benchmark's document generator (bench/gen_vorla.py): its archives load, hold
// what it reports, link up inside, and are the same bytes for the same seed.
#include <gtest/gtest.h>
#include <zip.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

using kaltest::TempDir;

std::string Text(const KalUnicodeString& s) {
  const char* p = s.ConvertToChar();
  return p == nullptr ? std::string() : std::string(p, static_cast<size_t>(s.GetLengthInChar()));
}

std::string Attr(const KalLightXmlElementItf* e, const char* name) {
  return Text(e->GetAttribute(name));
}

std::vector<KalLightXmlElementItf*> Children(const KalLightXmlElementItf* e) {
  std::vector<KalLightXmlElementItf*> out;
  KalPosition cursor = e->GetHeadPosition();
  while (cursor != nullptr) out.push_back(e->GetNextChild(cursor));
  return out;
}

KalLightXmlElementItf* Child(const KalLightXmlElementItf* e, const std::string& tag) {
  for (KalLightXmlElementItf* c : Children(e))
    if (c != nullptr && Text(c->GetType()) == tag) return c;
  return nullptr;
}

std::string ChildText(const KalLightXmlElementItf* e, const std::string& tag) {
  const KalLightXmlElementItf* c = Child(e, tag);
  return c == nullptr ? std::string() : Text(c->GetValue());
}

int ToInt(const std::string& s) {
  char* end = nullptr;
  const long v = std::strtol(s.c_str(), &end, 10);
  return end != s.c_str() && *end == '\0' ? static_cast<int>(v) : -1;
}

template <typename T>
std::vector<T> Numbers(const std::string& text) {
  std::vector<T> out;
  std::istringstream in(text);
  T v;
  while (in >> v) out.push_back(v);
  EXPECT_TRUE(in.eof()) << "not a number list: " << text.substr(0, 80);
  return out;
}

// The number after "key": in the generator's one-line JSON; -1 when the key is missing.
long JsonNumber(const std::string& json, const std::string& key) {
  const std::string k = "\"" + key + "\":";
  const size_t at = json.find(k);
  if (at == std::string::npos) return -1;
  return std::strtol(json.c_str() + at + k.size(), nullptr, 10);
}

std::string JsonString(const std::string& json, const std::string& key) {
  const std::string k = "\"" + key + "\": \"";
  const size_t at = json.find(k);
  if (at == std::string::npos) return std::string();
  const size_t start = at + k.size();
  return json.substr(start, json.find('"', start) - start);
}

// The id in a local URN of the given kind, -1 when the URN is of another form.
int LocalUrnId(KalVorlaParser& parser, const std::string& urn, KalVorlaUrnType kind) {
  KalVorlaUrnType type = KalVorlaUrnReference;
  unsigned char isLocal = 0;
  int id = -1;
  KalUnicodeString file;
  if (FAILED(parser.ExtractVorlaUrnDatas(urn.c_str(), type, isLocal, id, file))) return -1;
  return type == kind && isLocal == 1 ? id : -1;
}

// Sizes and names of the entries of a zip archive, in archive order.
struct ArchiveEntry {
  std::string name;
  long size;
  int method;
};

std::vector<ArchiveEntry> ListArchive(const std::string& path) {
  std::vector<ArchiveEntry> out;
  int error = 0;
  zip_t* archive = zip_open(path.c_str(), ZIP_RDONLY, &error);
  if (archive == nullptr) return out;
  const zip_int64_t count = zip_get_num_entries(archive, 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    zip_stat_t st;
    if (zip_stat_index(archive, static_cast<zip_uint64_t>(i), 0, &st) == 0)
      out.push_back({st.name, static_cast<long>(st.size), st.comp_method});
  }
  zip_close(archive);
  return out;
}

class BenchGenerator : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("python3 -c 'import zipfile' > /dev/null 2>&1") != 0)
      GTEST_SKIP() << "python3 is not available: the benchmark generator cannot run";
  }

  // Runs the generator into `out` and returns what it printed; fails the test when the
  // generator exits with an error. `env` goes before the command ("NAME=value ").
  std::string Generate(const std::string& args, const std::string& out,
                       const std::string& env = std::string()) {
    const std::string json = out + ".json";
    const std::string command = env + "python3 '" + KAL_SOURCE_DIR +
                                "/bench/gen_vorla.py' " + args + " '" + out + "' > '" + json +
                                "'";
    const int status = std::system(command.c_str());
    EXPECT_EQ(status, 0) << command;
    return status == 0 ? kaltest::ReadFile(json) : std::string();
  }

  TempDir _Dir;
};

constexpr const char* kSmall = "--instances 300 --depth 3 --fanout 4 --seed 7";

TEST_F(BenchGenerator, ReportsTheCountsTheParserFinds) {
  const std::string path = _Dir.File("small.vorla");
  const std::string json = Generate(kSmall, path);
  ASSERT_FALSE(json.empty());

  EXPECT_EQ(JsonNumber(json, "instances"), 300);
  // Three levels of four: 1 + 4 + 16 assemblies; 300 / 100 parts.
  EXPECT_EQ(JsonNumber(json, "assemblies"), 21);
  EXPECT_EQ(JsonNumber(json, "parts"), 3);
  const long references = JsonNumber(json, "references");
  EXPECT_EQ(references, 24);
  EXPECT_EQ(JsonNumber(json, "reference_reps"), 3);
  EXPECT_EQ(JsonNumber(json, "instance_reps"), 3);
  const long formats = JsonNumber(json, "rep_formats");
  EXPECT_GE(formats, 3);
  EXPECT_LE(formats, 6);
  EXPECT_EQ(JsonNumber(json, "representations"), formats);
  EXPECT_GT(JsonNumber(json, "graphic_properties"), 300 / 8);
  EXPECT_LT(JsonNumber(json, "graphic_properties"), 300 / 2);

  const std::string rootEntry = JsonString(json, "root_entry");
  EXPECT_EQ(rootEntry, "Assembly.vorla");
  const std::vector<ArchiveEntry> entries = ListArchive(path);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, "Manifest.xml");
  EXPECT_EQ(entries[1].name, rootEntry);
  EXPECT_EQ(entries[1].size, JsonNumber(json, "root_xml_bytes"));
  EXPECT_EQ(entries[1].method, ZIP_CM_DEFLATE);

  auto parser = std::make_unique<KalVorlaParser>();
  ASSERT_EQ(parser->InitParsing(path.c_str()), S_OK);
  int count = -1;
  ASSERT_EQ(parser->GetNumberOfInstances(count), S_OK);
  EXPECT_EQ(count, 300);
  ASSERT_EQ(parser->GetNumberOfReferences(count), S_OK);
  EXPECT_EQ(count, references);
  ASSERT_EQ(parser->GetNumberOfRepresentations(count), S_OK);
  EXPECT_EQ(count, formats);

  KalLightXmlElementItf* root = nullptr;
  ASSERT_EQ(parser->GetProductStructureRootReference(&root), S_OK);
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(ToInt(Attr(root, "id")), JsonNumber(json, "root_reference_id"));

  const long first = JsonNumber(json, "first_instance_id");
  const long last = JsonNumber(json, "last_instance_id");
  EXPECT_EQ(last - first + 1, 300);
  for (long id : {first, first + 1, (first + last) / 2, last}) {
    KalLightXmlElementItf* instance = nullptr;
    EXPECT_EQ(parser->GetInstance3DFromLocalID(static_cast<int>(id), &instance), S_OK) << id;
    ASSERT_NE(instance, nullptr) << id;
    EXPECT_EQ(Text(instance->GetType()), "Instance3D");
    EXPECT_EQ(ToInt(Attr(instance, "id")), id);
  }
  // The ids around the range belong to a part reference and a representation reference.
  for (long id : {first - 1, last + 1}) {
    KalLightXmlElementItf* instance = nullptr;
    EXPECT_LT(parser->GetInstance3DFromLocalID(static_cast<int>(id), &instance), 0) << id;
  }
}

// Every link of a generated document leads to an element of the right kind, and the
// inline data is well formed.
TEST_F(BenchGenerator, DocumentLinksUp) {
  const std::string path = _Dir.File("links.vorla");
  const std::string json = Generate("--instances 2000 --depth 3 --fanout 5 --seed 3", path);
  ASSERT_FALSE(json.empty());
  auto parser = std::make_unique<KalVorlaParser>();
  ASSERT_EQ(parser->InitParsing(path.c_str()), S_OK);
  KalLightXmlElementItf* document = nullptr;
  ASSERT_EQ(parser->GetVorlaRootNode(&document), S_OK);
  ASSERT_NE(document, nullptr);
  EXPECT_EQ(ChildText(Child(document, "Header"), "SchemaVersion"), "2.0");
  const KalLightXmlElementItf* structure = Child(document, "ProductStructure");
  const KalLightXmlElementItf* geometry = Child(document, "GeometricRepresentationSet");
  ASSERT_NE(structure, nullptr);
  ASSERT_NE(geometry, nullptr);

  std::set<int> representationIds;
  std::set<std::string> payloads;
  for (const KalLightXmlElementItf* rep : Children(geometry)) {
    ASSERT_NE(rep, nullptr);
    ASSERT_EQ(Text(rep->GetType()), "Representation");
    const int id = ToInt(Attr(rep, "id"));
    EXPECT_TRUE(representationIds.insert(id).second) << "duplicate representation " << id;
    const std::string format = Attr(rep, "format");
    EXPECT_TRUE(format == "TESSELLATED" || format == "EXACT") << format;
    EXPECT_EQ(Attr(rep, "version"), "1.0");
    const std::vector<KalLightXmlElementItf*> content = Children(rep);
    ASSERT_EQ(content.size(), 1u) << "representation " << id;
    const std::string kind = Text(content[0]->GetType());
    payloads.insert(kind);
    if (kind == "AssociatedData") {
      std::istringstream lines(Text(content[0]->GetValue()));
      size_t chars = 0;
      for (std::string line; std::getline(lines, line);) {
        const size_t start = line.find_first_not_of(' ');
        if (start == std::string::npos) continue;
        const std::string code = line.substr(start);
        EXPECT_LE(code.size(), 76u);
        EXPECT_EQ(code.find_first_not_of(
                      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="),
                  std::string::npos);
        chars += code.size();
      }
      EXPECT_EQ(chars % 4, 0u);
      EXPECT_GT(chars, 2000u);
    } else {
      ASSERT_EQ(kind, "AssociatedXML");
      EXPECT_EQ(format, "TESSELLATED");
      for (const KalLightXmlElementItf* mesh : Children(content[0])) {
        ASSERT_EQ(Text(mesh->GetType()), "Mesh");
        const std::vector<double> positions = Numbers<double>(ChildText(mesh, "Positions"));
        ASSERT_EQ(positions.size() % 3, 0u);
        const size_t vertices = positions.size() / 3;
        EXPECT_GE(vertices, 24u);
        EXPECT_LE(vertices, 1000u);
        EXPECT_EQ(Numbers<double>(ChildText(mesh, "Normals")).size(), positions.size());
        size_t faces = 0;
        for (const KalLightXmlElementItf* part : Children(mesh)) {
          const std::string tag = Text(part->GetType());
          if (tag == "Positions" || tag == "Normals") continue;
          const std::vector<long> indices = Numbers<long>(Text(part->GetValue()));
          if (tag == "Triangles") {
            EXPECT_EQ(indices.size() % 3, 0u);
          }
          if (tag != "Polyline") faces += indices.size();
          for (long index : indices) {
            EXPECT_GE(index, 0);
            EXPECT_LT(index, static_cast<long>(vertices));
          }
        }
        EXPECT_GT(faces, 0u);
      }
    }
  }
  EXPECT_EQ(static_cast<long>(representationIds.size()), JsonNumber(json, "representations"));
  EXPECT_EQ(payloads.size(), 2u) << "both inline data and tessellated meshes";

  std::set<int> instanceIds;
  std::set<int> referenceRepIds;
  std::set<int> usedRepresentations;
  long aspects = 0, referenceReps = 0, instanceReps = 0;
  for (const KalLightXmlElementItf* e : Children(structure)) {
    ASSERT_NE(e, nullptr);
    const std::string type = Attr(e, "xsi:type");
    const std::string name = Attr(e, "name");
    if (type == "Instance3DType") {
      instanceIds.insert(ToInt(Attr(e, "id")));
      KalLightXmlElementItf* parent = nullptr;
      EXPECT_EQ(parser->GetReference3DFromLocalID(ToInt(ChildText(e, "IsAggregatedBy")), &parent),
                S_OK);
      EXPECT_NE(parent, nullptr) << name;
      const int refId =
          LocalUrnId(*parser, ChildText(e, "IsInstanceOf"), KalVorlaUrnReference);
      KalLightXmlElementItf* reference = nullptr;
      EXPECT_EQ(parser->GetReference3DFromLocalID(refId, &reference), S_OK) << name;
      ASSERT_NE(reference, nullptr) << name;
      // Instance names are the reference's name and a running number.
      EXPECT_EQ(name.rfind(Attr(reference, "name") + ".", 0), 0u) << name;
      double m[12] = {0};
      ASSERT_EQ(parser->ConvertMatrix(Child(e, "RelativeMatrix"), m), S_OK) << name;
      EXPECT_EQ(Numbers<double>(ChildText(e, "RelativeMatrix")).size(), 12u) << name;
      // The first nine numbers form a rotation: orthonormal rows, determinant +1.
      for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
          const double dot =
              m[3 * i] * m[3 * j] + m[3 * i + 1] * m[3 * j + 1] + m[3 * i + 2] * m[3 * j + 2];
          EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, 1e-5) << name;
        }
      const double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                         m[2] * (m[3] * m[7] - m[4] * m[6]);
      EXPECT_NEAR(det, 1.0, 1e-5) << name;
      EXPECT_LE(std::fabs(m[9]) + std::fabs(m[10]) + std::fabs(m[11]), 3 * 2000.0) << name;
    } else if (type == "ReferenceRepType") {
      ++referenceReps;
      referenceRepIds.insert(ToInt(Attr(e, "id")));
    } else if (type == "InstanceRepType") {
      ++instanceReps;
      KalLightXmlElementItf* part = nullptr;
      EXPECT_EQ(parser->GetReference3DFromLocalID(ToInt(ChildText(e, "IsAggregatedBy")), &part),
                S_OK);
      EXPECT_NE(part, nullptr) << name;
      const int repId = LocalUrnId(*parser, ChildText(e, "IsInstanceOf"), KalVorlaUrnReference);
      KalLightXmlElementItf* referenceRep = nullptr;
      EXPECT_EQ(parser->GetReferenceRepFromLocalID(repId, &referenceRep), S_OK) << name;
    } else if (type == "RepFormatType") {
      EXPECT_TRUE(Attr(e, "id").empty());
      KalLightXmlElementItf* owner = nullptr;
      EXPECT_EQ(parser->GetReferenceRepFromLocalID(ToInt(Attr(e, "owner")), &owner), S_OK);
      const int target =
          LocalUrnId(*parser, Attr(e, "associatedFile"), KalVorlaUrnRepresentation);
      EXPECT_EQ(representationIds.count(target), 1u) << Attr(e, "associatedFile");
      EXPECT_TRUE(usedRepresentations.insert(target).second) << "shared " << target;
      EXPECT_EQ(ChildText(e, "version"), "1.0");
      const std::string format = ChildText(e, "format");
      EXPECT_TRUE(format == "TESSELLATED" || format == "EXACT") << format;
    } else if (type == "GraphicPropertiesAspectType") {
      ++aspects;
      EXPECT_TRUE(Attr(e, "id").empty());
      KalLightXmlElementItf* owner = nullptr;
      EXPECT_EQ(parser->GetInstance3DFromLocalID(ToInt(Attr(e, "aspectOwner")), &owner), S_OK);
      KalLightXmlElementItf* properties = Child(e, "GraphicProperties");
      ASSERT_NE(properties, nullptr);
      KalLightXmlElementItf* surface = nullptr;
      EXPECT_EQ(parser->GetVorlaChildNodeFromType(properties, "SurfaceAttributesType", &surface),
                S_OK);
      EXPECT_NE(surface, nullptr);
    } else {
      EXPECT_EQ(type, "Reference3DType") << Text(e->GetType());
    }
  }
  EXPECT_EQ(static_cast<long>(instanceIds.size()), 2000);
  EXPECT_EQ(referenceReps, JsonNumber(json, "reference_reps"));
  EXPECT_EQ(instanceReps, JsonNumber(json, "instance_reps"));
  EXPECT_EQ(static_cast<long>(usedRepresentations.size()), JsonNumber(json, "rep_formats"));
  EXPECT_EQ(aspects, JsonNumber(json, "graphic_properties"));

  KalLightXmlElementItf* materials = nullptr;
  ASSERT_EQ(parser->GetGraphicMaterialSetNode(&materials), S_OK);
  ASSERT_NE(materials, nullptr);
  const std::vector<KalLightXmlElementItf*> materialList = Children(materials);
  EXPECT_EQ(materialList.size(), 20u);
  for (const KalLightXmlElementItf* m : materialList) EXPECT_GT(ToInt(Attr(m, "id")), 0);

  // Views: every overridden occurrence is an instance of the document.
  KalLightXmlElementItf* defaultView = nullptr;
  ASSERT_EQ(parser->GetDefaultViewNode(&defaultView), S_OK);
  ASSERT_NE(defaultView, nullptr);
  std::vector<const KalLightXmlElementItf*> views = {defaultView};
  const KalLightXmlElementItf* alternates = Child(document, "AlternateViewSet");
  ASSERT_NE(alternates, nullptr);
  for (const KalLightXmlElementItf* v : Children(alternates)) views.push_back(v);
  EXPECT_GE(views.size(), 3u);
  long overrides = 0;
  for (const KalLightXmlElementItf* view : views) {
    EXPECT_NE(Child(view, "Viewpoint"), nullptr);
    for (const KalLightXmlElementItf* p : Children(view)) {
      const std::string tag = Text(p->GetType());
      if (tag != "DefaultViewProperty" && tag != "AlternateViewProperty") continue;
      ++overrides;
      EXPECT_EQ(instanceIds.count(ToInt(ChildText(p, "OccurenceId"))), 1u);
    }
  }
  EXPECT_EQ(overrides, JsonNumber(json, "view_properties"));
  EXPECT_GT(overrides, 0);
}

TEST_F(BenchGenerator, SameSeedGivesSameBytes) {
  const std::string a = _Dir.File("a.vorla"), b = _Dir.File("b.vorla"), c = _Dir.File("c.vorla");
  // A day apart in local time, so that a timestamp taken from the clock shows.
  const std::string jsonA = Generate(kSmall, a, "TZ=UTC+12 ");
  const std::string jsonB = Generate(kSmall, b, "TZ=UTC-12 ");
  ASSERT_FALSE(jsonA.empty());
  EXPECT_EQ(jsonA, jsonB);
  const std::string bytesA = kaltest::ReadFile(a);
  EXPECT_GT(bytesA.size(), 1000u);
  EXPECT_TRUE(bytesA == kaltest::ReadFile(b)) << "two runs with seed 7 differ";
  ASSERT_FALSE(Generate("--instances 300 --depth 3 --fanout 4 --seed 8", c).empty());
  EXPECT_FALSE(bytesA == kaltest::ReadFile(c)) << "seeds 7 and 8 gave the same archive";
}

TEST_F(BenchGenerator, StoredArchiveHoldsTheSameDocument) {
  const std::string deflated = _Dir.File("deflated.vorla"), stored = _Dir.File("stored.vorla");
  const std::string jsonDeflated = Generate(kSmall, deflated);
  const std::string jsonStored = Generate(std::string(kSmall) + " --store", stored);
  ASSERT_FALSE(jsonStored.empty());
  EXPECT_EQ(jsonStored, jsonDeflated);
  const std::vector<ArchiveEntry> entries = ListArchive(stored);
  ASSERT_EQ(entries.size(), 2u);
  for (const ArchiveEntry& e : entries) EXPECT_EQ(e.method, ZIP_CM_STORE) << e.name;
  EXPECT_GT(kaltest::ReadFile(stored).size(), kaltest::ReadFile(deflated).size());

  auto parser = std::make_unique<KalVorlaParser>();
  ASSERT_EQ(parser->InitParsing(stored.c_str()), S_OK);
  int count = -1;
  ASSERT_EQ(parser->GetNumberOfInstances(count), S_OK);
  EXPECT_EQ(count, 300);
  KalLightXmlElementItf* instance = nullptr;
  EXPECT_EQ(parser->GetInstance3DFromLocalID(
                static_cast<int>(JsonNumber(jsonStored, "last_instance_id")), &instance),
            S_OK);
  EXPECT_NE(instance, nullptr);
}

}  // namespace
