// The reader behind KalLightXmlParser (internal to the platform): one pass over a document's
// UTF-8 text that builds the element tree of KalLightXmlElement in the document's arena.
#ifndef KAL_XML_BUILDER_H
#define KAL_XML_BUILDER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "KalLightXmlElement.h"
#include "KalXmlDocument.h"

class KalXmlBuilder {
 public:
  // inputSize bounds how much entity expansion the document may ask for.
  KalXmlBuilder(KalXmlDocument& document, KalLightXmlRootElement& root, size_t inputSize);

  // Reads the whole document (UTF-8, byte-order mark removed), checking its characters on
  // the way. False when it is not well-formed or memory runs out.
  bool Parse(const char* begin, const char* end);

 private:
  struct Frame {
    KalLightXmlElement* element;
    KalLightXmlElement* lastChild;
    char* growing;  // value buffer being appended to, once the value has several pieces
    size_t capacity;
  };
  struct PendingAttribute {
    const KalUnicodeString* name;
    char* text;
    size_t length;
  };
  struct Entity {
    enum Kind { kInternal, kExternal, kUnparsed } kind;
    std::string text;  // the replacement text of an internal entity
    bool expanding;
  };
  struct AttributeDeclaration {
    bool tokenized;  // any type but CDATA: blanks are trimmed and collapsed
    bool hasDefault;
    std::string value;
    size_t seen;  // the element that last had this attribute written
  };
  // The attributes declared for one element type, by name.
  struct ElementDeclarations {
    std::unordered_map<const KalUnicodeString*, AttributeDeclaration> attributes;
    std::vector<const KalUnicodeString*> defaults;  // those with a default, in declared order
  };
  // White space read since the last tag, kept aside until the run shows whether it is
  // content or indentation.
  struct WhiteSpace {
    const char* begin;
    const char* end;
    bool normalise;  // document text, whose line ends still need normalising
  };
  enum class Reference { kNone, kCharacter, kEntity, kMalformed };
  static constexpr int kMaxEntityDepth = 40;

  // Content (KalLightXmlParser.cpp).
  const char* Content(const char* p, const char* end, bool inEntity);
  bool StartTag(const char*& p, const char* end);
  bool EndTag(const char*& p, const char* end);
  bool CharacterData(const char* p, const char* end, const char*& stop, bool& plain);
  bool Text(const char* b, const char* e, bool plain);
  bool TextPiece(const char* b, const char* e, const char*& resume);
  bool Cdata(const char* b, const char* e);
  bool ExpandInContent(Entity& entity);
  bool FlushWhiteSpace();
  bool EndRun(bool closing);
  bool Append(const char* data, size_t length);
  bool AppendNormalised(const char* b, const char* e);
  bool AttributeValue(const char* b, const char* e, bool plain, PendingAttribute& attribute);
  bool DecodeAttribute(const char* b, const char* e, bool document, std::string& out);
  bool ApplyDeclarations(const KalUnicodeString* type);
  bool HasRepeatedAttribute();
  Reference ReadReference(const char*& p, const char* end, uint32_t& cp, std::string& name);
  bool ResolveReference(const char*& q, const char* end, std::string& out, Entity*& entity);
  Entity* FindEntity(const std::string& name);
  bool EnterEntity(Entity& entity);
  void LeaveEntity(Entity& entity);

  // Markup outside the content model (KalXmlDoctype.cpp).
  bool XmlDeclaration(const char*& p, const char* end);
  bool Comment(const char*& p, const char* end);
  bool ProcessingInstruction(const char*& p, const char* end);
  bool Doctype(const char*& p, const char* end);
  bool Subset(const char*& p, const char* end, bool nested);
  bool EntityDeclaration(const char*& p, const char* end);
  bool EntityValue(const char*& p, const char* end, std::string& out);
  bool AttlistDeclaration(const char*& p, const char* end);
  bool ElementDeclaration(const char*& p, const char* end);
  bool NotationDeclaration(const char*& p, const char* end);
  bool ExternalId(const char*& p, const char* end, bool systemOptional);
  bool Quoted(const char*& p, const char* end, const char*& b, const char*& e);

  KalXmlDocument& _Doc;
  KalXmlArena& _Arena;
  KalLightXmlRootElement& _Root;
  std::vector<Frame> _Stack;
  std::vector<PendingAttribute> _Attributes;
  std::vector<const void*> _Names;  // scratch for the repeated-attribute check
  std::string _Scratch;             // decoded text on its way to the arena

  std::vector<WhiteSpace> _WhiteSpace;
  bool _RunHasContent = false;

  std::unordered_map<std::string, Entity> _Entities;
  std::unordered_map<std::string, Entity> _ParameterEntities;
  std::unordered_map<const KalUnicodeString*, ElementDeclarations> _Declarations;
  size_t _NbElements = 0;
  // After a parameter entity that cannot be read, later declarations might depend on it, so
  // they are checked but no longer used.
  bool _DeclarationsStopped = false;
  int _EntityDepth = 0;
  size_t _ExpansionLeft;
};

#endif
