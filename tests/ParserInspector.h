// White-box access to KalVorlaParser for its tests, and small helpers shared by them.
#ifndef KAL_PARSER_INSPECTOR_H
#define KAL_PARSER_INSPECTOR_H

#include <map>
#include <string>
#include <vector>

#include "KalHashTable.h"
#include "KalVorlaParser.h"

struct KalVorlaParserInspector {
  using Parser = KalVorlaParser;
  using ElementList = KalListPtrKalLightXmlElementItf;

  static bool ArchiveOpen() { return Parser::_pZipFile != nullptr; }
  static unsigned int EntryCount() { return Parser::_NbZippedFiles; }

  static bool OwnsArchive(const Parser& p) { return p._OwnsArchive != 0; }
  static std::string TempDirectory(const Parser& p) { return p._TempDirectory.ConvertToChar(); }
  static std::string DocumentDir(const Parser& p) { return p._DocumentDirectory.ConvertToChar(); }
  static const char* SavedLocale(const Parser& p) { return p._pSavedLocale; }

  enum Table { kInstances, kReferences, kInstanceReps, kReferenceReps, kExtensions, kViews };
  static KalHashTable* TableOf(const Parser& p, Table t) {
    KalHashTable* const tables[] = {p._pInstanceTable,          p._pReferenceTable,
                                    p._pInstanceRepTable,       p._pReferenceRepTable,
                                    p._pSpecificExtensionTable, p._pAlternateViewTable};
    return tables[t];
  }
  // -1 when the table does not exist.
  static int SizeOf(const Parser& p, Table t) { return TableOf(p, t) ? TableOf(p, t)->Size() : -1; }

  static const ElementList& GraphicProperties(const Parser& p) { return p._GraphicPropertiesList; }
  static const ElementList& RepFormats(const Parser& p) { return p._RepFormatList; }
  static const ElementList& GraphicMaterials(const Parser& p) { return p._GraphicMaterialList; }

  static std::vector<int> Ints(const KalRawCollint& collection) {
    std::vector<int> ints;
    for (int i = 1; i <= collection.Size(); ++i) ints.push_back(collection[i]);
    return ints;
  }
  static const KalRawCollint& GraphicMaterialIds(const Parser& p) { return p._GraphicMaterialIds; }
  // The child ids of the Reference3D record of `id`, found the way the parser finds it.
  static std::vector<int> ReferenceChildren(const Parser& p, int id) {
    KalVorlaReferenceAndChild probe;
    probe.id = id;
    auto* r = static_cast<const KalVorlaReferenceAndChild*>(p._pReferenceTable->Locate(&probe));
    return r != nullptr ? Ints(r->children) : std::vector<int>();
  }

  // Puts a hand-made element where the parser keeps its product structure (never freed).
  static void SetStructure(Parser& p, KalLightXmlElementItf* e) { p._pProductStructureNode = e; }
};

namespace kaltest {

inline std::string Str(const KalUnicodeString& s) { return s.ConvertToChar(); }

// The "name" attribute of an element; "<null>" for no element.
inline std::string NameOf(const KalLightXmlElementItf* e) {
  return e == nullptr ? "<null>" : Str(e->GetAttribute("name"));
}

// A Vorla root document: a header with the given schema version, then `body`.
inline std::string VorlaXml(const std::string& body, const std::string& v = "1.0") {
  return "<Model><Header><SchemaVersion>" + v + "</SchemaVersion></Header>" + body + "</Model>";
}

// The first direct child with the given tag, found without the parser's own searches.
inline KalLightXmlElementItf* ChildByTag(const KalLightXmlElementItf* e, const std::string& tag) {
  for (KalPosition cursor = e ? e->GetHeadPosition() : nullptr; cursor != nullptr;) {
    KalLightXmlElementItf* child = e->GetNextChild(cursor);
    if (child != nullptr && Str(child->GetType()) == tag) return child;
  }
  return nullptr;
}

// An element made by hand. Children may be null, which a parsed document never yields.
class FakeElement : public KalLightXmlElementItf {
 public:
  explicit FakeElement(const char* tag = "Fake", std::vector<KalLightXmlElementItf*> children = {},
                       std::map<std::string, KalUnicodeString> attributes = {})
      : _Tag(tag), _Children(std::move(children)), _Attributes(std::move(attributes)) {}
  int CopyFrom(const KalLightXmlElementItf*) override { return 0; }
  KalPosition GetHeadPosition() const override { return _Children.empty() ? nullptr : Cursor(1); }
  KalLightXmlElementItf* GetNextChild(KalPosition& cursor) const override {
    const size_t next = reinterpret_cast<size_t>(cursor);
    cursor = next < _Children.size() ? Cursor(next + 1) : nullptr;
    return _Children[next - 1];
  }
  const KalUnicodeString& GetType() const override { return _Tag; }
  const KalUnicodeString& GetAttribute(const KalUnicodeString& name) const override {
    auto it = _Attributes.find(Str(name));
    return it == _Attributes.end() ? KalUnicodeString::Empty() : it->second;
  }
  const KalUnicodeString& GetValue() const override { return KalUnicodeString::Empty(); }

 private:
  static KalPosition Cursor(size_t n) { return reinterpret_cast<KalPosition>(n); }
  KalUnicodeString _Tag;
  std::vector<KalLightXmlElementItf*> _Children;
  std::map<std::string, KalUnicodeString> _Attributes;
};

}  // namespace kaltest

#endif
