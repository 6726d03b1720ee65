// The tool's one layer over the library: opened documents, and every query whose result the
// caller must release (arrays, buffers, copied elements) wrapped so that it is released in
// one place.
#ifndef VORLA_DOCUMENT_H
#define VORLA_DOCUMENT_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Assembly.h"
#include "KalVorlaParser.h"

namespace vorla {

using Element = KalLightXmlElementItf;

// Where an instance's reference is: an element of the same document, or an id in a file.
struct ReferenceTarget {
  Element* reference = nullptr;
  std::string file;
  int id = -1;
};

struct GeometryBuffer {
  HRESULT code = S_OK;
  std::unique_ptr<char[]> bytes;
  unsigned int size = 0;
  std::string tag;
};

std::string Text(const KalUnicodeString& s);

class Document {
 public:
  // The document at `path`, or null with the load's code in `code`.
  static std::unique_ptr<Document> Open(const std::string& path, HRESULT& code);
  ~Document();
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  KalVorlaParser& Parser() { return *_pParser; }
  const std::string& Path() const { return _Path; }
  HRESULT LoadCode() const { return _LoadCode; }

  Element* RootReference();
  int Id(Element* e);
  std::string Name(Element* e);
  std::vector<Element*> Instances(Element* reference);
  ReferenceTarget ReferenceOf(Element* instance);
  std::optional<Matrix> MatrixOf(Element* instance);
  std::vector<Element*> RepInstances(Element* reference);
  // The representation reference of a representation instance, null when it lives elsewhere.
  Element* RepReferenceOf(Element* repInstance);
  std::vector<Element*> Formats(Element* repReference);
  std::string DocType(Element* format);
  std::string Urn(Element* format);
  std::string Location(Element* format, HRESULT& code);
  GeometryBuffer Geometry(Element* format);
  // The surface colour a node's graphic properties give it (a colour, or a colour material).
  std::optional<Rgba> ColorOf(Element* node);
  std::optional<Rgba> ColorOfProperties(Element* graphicProperties);

 private:
  Document() = default;
  std::unique_ptr<KalVorlaParser> _pParser;
  std::string _Path;
  HRESULT _LoadCode = S_OK;
};

// Documents by path, opened on first use and kept while the element pointers are in use.
class DocumentSet {
 public:
  // The opened document, null when it cannot be read (`code` says why).
  Document* Get(const std::string& path, HRESULT& code);
  Document* Root() { return _pRoot; }

 private:
  std::map<std::string, std::unique_ptr<Document>> _Documents;
  std::map<std::string, HRESULT> _Failures;
  Document* _pRoot = nullptr;
};

}  // namespace vorla

#endif
