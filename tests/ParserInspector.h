// White-box access to KalVorlaParser for the library's own tests, and a few small helpers
// shared by the parser test files.
#ifndef KAL_PARSER_INSPECTOR_H
#define KAL_PARSER_INSPECTOR_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "KalHashTable.h"
#include "KalVorlaParser.h"

struct KalVorlaParserInspector {
  using Parser = KalVorlaParser;

  // Class-wide archive state.
  static bool ArchiveOpen() { return Parser::_pZipFile != nullptr; }
  static bool HasEntryTable() {
    return Parser::_pZippedFiles != nullptr && Parser::_pFileSize != nullptr;
  }
  static unsigned int EntryCount() { return Parser::_NbZippedFiles; }
  static std::vector<std::string> EntryNames() {
    std::vector<std::string> names;
    for (unsigned int i = 0; Parser::_pZippedFiles != nullptr && i < Parser::_NbZippedFiles; ++i)
      names.emplace_back(Parser::_pZippedFiles[i].ConvertToChar());
    return names;
  }

  static bool OwnsArchive(const Parser& p) { return p._OwnsArchive != 0; }

  enum Table { kInstances, kReferences, kInstanceReps, kReferenceReps, kExtensions, kViews };
  static KalHashTable* TableOf(const Parser& p, Table t) {
    switch (t) {
      case kInstances:
        return p._pInstanceTable;
      case kReferences:
        return p._pReferenceTable;
      case kInstanceReps:
        return p._pInstanceRepTable;
      case kReferenceReps:
        return p._pReferenceRepTable;
      case kExtensions:
        return p._pSpecificExtensionTable;
      case kViews:
        return p._pAlternateViewTable;
    }
    return nullptr;
  }
  // -1 when the table does not exist.
  static int TableSize(const Parser& p, Table t) {
    const KalHashTable* table = TableOf(p, t);
    return table == nullptr ? -1 : table->Size();
  }

  static const KalListPtrKalLightXmlElementItf& GraphicProperties(const Parser& p) {
    return p._GraphicPropertiesList;
  }
  static const KalListPtrKalLightXmlElementItf& RepFormats(const Parser& p) {
    return p._RepFormatList;
  }
  static const KalListPtrKalLightXmlElementItf& GraphicMaterials(const Parser& p) {
    return p._GraphicMaterialList;
  }
  static const KalRawCollint& GraphicMaterialIds(const Parser& p) { return p._GraphicMaterialIds; }

  static std::string TempDirectory(const Parser& p) { return p._TempDirectory.ConvertToChar(); }
  static std::string DocumentDirectory(const Parser& p) {
    return p._DocumentDirectory.ConvertToChar();
  }
  static const char* SavedLocale(const Parser& p) { return p._pSavedLocale; }

  // The Reference3D record of `id`, found the way the parser finds it; null when absent.
  static const KalVorlaReferenceAndChild* ReferenceRecord(const Parser& p, int id) {
    if (p._pReferenceTable == nullptr) return nullptr;
    KalVorlaReferenceAndChild probe;
    probe.id = id;
    return static_cast<const KalVorlaReferenceAndChild*>(p._pReferenceTable->Locate(&probe));
  }
  static std::vector<int> ReferenceChildren(const Parser& p, int id) {
    std::vector<int> ids;
    if (const KalVorlaReferenceAndChild* record = ReferenceRecord(p, id))
      for (int i = 1; i <= record->children.Size(); ++i) ids.push_back(record->children[i]);
    return ids;
  }

  // Lets a test put a hand-made element (one that yields a null child) where the parser
  // keeps its product structure. The parser never frees this member.
  static void SetProductStructureNode(Parser& p, KalLightXmlElementItf* node) {
    p._pProductStructureNode = node;
  }
};

namespace kaltest {

inline std::string Str(const KalUnicodeString& s) { return s.ConvertToChar(); }

// The "name" attribute of an element; "<null>" for no element, so a failed lookup reads
// clearly in an assertion message.
inline std::string NameOf(const KalLightXmlElementItf* e) {
  return e == nullptr ? "<null>" : Str(e->GetAttribute("name"));
}

// A Vorla root document: a header with the given schema version, then `body`.
inline std::string VorlaXml(const std::string& body, const std::string& version = "1.0") {
  return "<Model><Header><SchemaVersion>" + version + "</SchemaVersion></Header>" + body +
         "</Model>";
}

// The direct children of an element, in document order (null children included).
inline std::vector<KalLightXmlElementItf*> Children(const KalLightXmlElementItf* e) {
  std::vector<KalLightXmlElementItf*> out;
  if (e == nullptr) return out;
  KalPosition cursor = e->GetHeadPosition();
  while (cursor != nullptr) out.push_back(e->GetNextChild(cursor));
  return out;
}

// The first direct child with the given tag, found without the parser's own searches.
inline KalLightXmlElementItf* ChildByTag(const KalLightXmlElementItf* e, const std::string& tag) {
  for (KalLightXmlElementItf* c : Children(e))
    if (c != nullptr && Str(c->GetType()) == tag) return c;
  return nullptr;
}

// An element made by hand. Children may be null, which a parsed document never yields.
class FakeElement : public KalLightXmlElementItf {
 public:
  explicit FakeElement(const char* tag = "Fake") : _Tag(tag) {}
  FakeElement& Add(KalLightXmlElementItf* child) {
    _Children.push_back(child);
    return *this;
  }
  FakeElement& Set(const std::string& name, const char* value) {
    _Attributes[name] = value;
    return *this;
  }
  int CopyFrom(const KalLightXmlElementItf*) override { return 0; }
  KalPosition GetHeadPosition() const override { return _Children.empty() ? nullptr : Cursor(0); }
  KalLightXmlElementItf* GetNextChild(KalPosition& cursor) const override {
    const size_t i = reinterpret_cast<std::uintptr_t>(cursor) - 1;
    cursor = i + 1 < _Children.size() ? Cursor(i + 1) : nullptr;
    return _Children[i];
  }
  const KalUnicodeString& GetType() const override { return _Tag; }
  const KalUnicodeString& GetAttribute(const KalUnicodeString& name) const override {
    auto it = _Attributes.find(Str(name));
    return it == _Attributes.end() ? KalUnicodeString::Empty() : it->second;
  }
  const KalUnicodeString& GetValue() const override { return KalUnicodeString::Empty(); }

 private:
  static KalPosition Cursor(size_t i) { return reinterpret_cast<KalPosition>(i + 1); }
  KalUnicodeString _Tag;
  std::vector<KalLightXmlElementItf*> _Children;
  std::map<std::string, KalUnicodeString> _Attributes;
};

}  // namespace kaltest

#endif
