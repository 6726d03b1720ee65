// Graphic properties of product-structure nodes: surface data, line and behaviour attributes,
// materials and colours.
#include "KalFormatConstants.h"
#include "KalLightXml.h"
#include "KalVorlaParser.h"
#include "loading/ChildWalk.h"
#include "loading/LookupIndexes.h"

namespace {

const KalUnicodeString kAspectOwnerAttribute = KalUnicodeString::Borrow("aspectOwner", 11);
const char kGraphicPropertiesTag[] = "GraphicProperties";
const char kNoId[] = "-1";

// Line types by their code, which is the position in this table plus one.
const char* const kLineTypes[] = {"SOLID",   "DOTTED",       "DASHED",  "DOT-DASHED",
                                  "PHANTOM", "SMALL-DOTTED", "JIS-AXIS"};
constexpr unsigned int kUnknownLineType = 0xFFFFFFFF;
constexpr float kNoThickness = -1.0f;
constexpr double kUnsetComponent = -1.0;

unsigned int LineTypeCode(const KalUnicodeString& text) {
  for (unsigned int i = 0; i < sizeof kLineTypes / sizeof *kLineTypes; ++i) {
    if (text == kLineTypes[i]) return i + 1;
  }
  return kUnknownLineType;
}

// Reads `name` of `element` into `value`; false when the attribute is empty. Text that is no
// number leaves `value` as it was.
bool ReadComponent(const KalLightXmlElementItf& element, const char* name, double& value) {
  const KalUnicodeString& text = element.GetAttribute(name);
  if (text.IsEmpty()) return false;
  text.ConvertToNum(&value, "%le");
  return true;
}

}  // namespace

HRESULT KalVorlaParser::GetGraphicPropertiesNode(KalLightXmlElementItf* node,
                                                 KalLightXmlElementItf** graphicProperties) {
  if (node == nullptr || graphicProperties == nullptr) return E_INVALIDARG;
  *graphicProperties = nullptr;
  // The node's id as written; a missing one reads as the empty string.
  const KalUnicodeString& id = node->GetAttribute(ID_S);
  if (id == kNoId) return E_FAIL;
  // A node without an id compares as "" and so owns an aspect without an owner.
  KalLightXmlElementItf* aspect = nullptr;
  KalVorlaLookupIndexes* indexes = Indexes();
  if (indexes == nullptr) {
    for (int i = 1; i <= _GraphicPropertiesList.Size() && aspect == nullptr; ++i) {
      KalLightXmlElementItf* entry = _GraphicPropertiesList[i];
      if (entry != nullptr && entry->GetAttribute(kAspectOwnerAttribute) == id) aspect = entry;
    }
  } else {
    // The first aspect naming an owner is the one found; null entries are skipped.
    kalvorla::FlatFirst<std::string_view>& byOwner = indexes->aspectsByOwner;
    if (!byOwner.built) {
      byOwner.built = true;
      const int count = _GraphicPropertiesList.Size();
      for (int i = 1; i <= count; ++i) {
        KalLightXmlElementItf* entry = _GraphicPropertiesList[i];
        // Aspects lie far apart in a big document and are read here for the first time since
        // the load: fetching a few ahead overlaps their misses.
        if (i + 8 <= count) KalPrefetchElement(_GraphicPropertiesList[i + 8]);
        if (entry != nullptr)
          byOwner.Add(kalvorla::TextOf(entry->GetAttribute(kAspectOwnerAttribute)), entry);
      }
      byOwner.Finish();
    }
    aspect = byOwner.Find(kalvorla::TextOf(id));
  }
  if (aspect == nullptr) return kVorlaNoGraphicProperties;
  KalLightXmlElementItf* child = nullptr;
  kalvorla::WalkChildren(aspect, kalvorla::NullChild::kSkip, [&](KalLightXmlElementItf* c) {
    if (c->GetType() != kGraphicPropertiesTag) return false;
    child = c;
    return true;
  });
  if (child == nullptr) return kVorlaNoGraphicProperties;
  *graphicProperties = child;
  return S_OK;
}

HRESULT KalVorlaParser::GetSurfaceAttributesElement(KalLightXmlElementItf* graphicProperties,
                                                    KalLightXmlElementItf** element) {
  if (graphicProperties == nullptr) return E_INVALIDARG;
  KalLightXmlElementItf* surface = nullptr;
  const HRESULT found =
      GetVorlaChildNodeFromType(graphicProperties, SURFACE_ATTRIBUTES_TYPE_S, &surface);
  if (FAILED(found)) return E_FAIL;
  if (found == S_FALSE) return kVorlaAbsent;
  // The first of the three kinds present wins; only a failed search for the colour is an
  // error (a null `element` fails it too).
  const HRESULT color = GetVorlaChildNodeFromName(surface, "Color", element);
  if (FAILED(color)) return E_FAIL;
  if (color == S_OK && *element != nullptr) return kVorlaSurfaceColor;
  if (GetVorlaChildNodeFromName(surface, "MaterialId", element) == S_OK && *element != nullptr) {
    return kVorlaSurfaceMaterialId;
  }
  if (GetVorlaChildNodeFromName(surface, "MaterialApplication", element) == S_OK &&
      *element != nullptr) {
    return kVorlaSurfaceMaterialApplication;
  }
  return kVorlaAbsent;
}

HRESULT KalVorlaParser::GetLineAttributes(KalLightXmlElementItf* graphicProperties, double& red,
                                          double& green, double& blue, unsigned int& lineType,
                                          float& thickness) {
  if (graphicProperties == nullptr) return E_INVALIDARG;
  KalLightXmlElementItf* line = nullptr;
  const HRESULT found = GetVorlaChildNodeFromType(graphicProperties, LINE_ATTRIBUTES_TYPE_S, &line);
  // Missing line attributes come back as S_FALSE with no element, so they fail here.
  if (FAILED(found) || line == nullptr) return E_FAIL;
  if (found == S_FALSE) return kVorlaAbsent;
  lineType = LineTypeCode(line->GetAttribute("lineType"));
  double width = kNoThickness;
  ReadComponent(*line, "thickness", width);
  thickness = static_cast<float>(width);
  // The colour child is searched by its type attribute "Color"; a child of that type is then
  // never of type "RGBAColorType", so the components stay as the caller set them.
  KalLightXmlElementItf* color = nullptr;
  const HRESULT colorFound = GetVorlaChildNodeFromType(line, "Color", &color);
  if (FAILED(colorFound)) return S_FALSE;
  if (colorFound == S_FALSE) return kVorlaLineWithoutColor;
  if (color != nullptr && color->GetAttribute(XSI_TYPE_S) == "RGBAColorType") {
    ReadComponent(*color, "red", red);
    ReadComponent(*color, "green", green);
    ReadComponent(*color, "blue", blue);
  }
  return S_OK;
}

HRESULT KalVorlaParser::GetBehaviourAttributes(KalLightXmlElementItf* graphicProperties,
                                               unsigned char& visible, unsigned char& selectable) {
  if (graphicProperties == nullptr) return E_INVALIDARG;
  KalLightXmlElementItf* general = nullptr;
  const HRESULT found =
      GetVorlaChildNodeFromType(graphicProperties, GENERAL_ATTRIBUTES_TYPE_S, &general);
  if (FAILED(found) || general == nullptr) return E_FAIL;
  if (found == S_FALSE) return kVorlaAbsent;
  visible = general->GetAttribute("visible") == "false" ? 0 : 1;
  selectable = general->GetAttribute("selectable") == "false" ? 0 : 1;
  return S_OK;
}

HRESULT KalVorlaParser::GetGraphicMaterialNode(unsigned int materialId,
                                               KalLightXmlElementItf** material) {
  if (material == nullptr) return E_INVALIDARG;
  int position = 0;
  KalVorlaLookupIndexes* indexes = Indexes();
  if (indexes == nullptr) {
    position = _GraphicMaterialIds.Locate(static_cast<int>(materialId), 1);
  } else {
    if (!indexes->materialsBuilt) {
      indexes->materialsBuilt = true;
      for (int i = 1; i <= _GraphicMaterialIds.Size(); ++i) {
        indexes->materialPositions.emplace(_GraphicMaterialIds[i], i);  // the first one stays
      }
    }
    auto found = indexes->materialPositions.find(static_cast<int>(materialId));
    if (found != indexes->materialPositions.end()) position = found->second;
  }
  if (position <= 0 || position > _GraphicMaterialList.Size()) return kVorlaNoSuchMaterial;
  *material = _GraphicMaterialList[position];
  if (*material == nullptr) return E_FAIL;
  const KalUnicodeString& type = (*material)->GetAttribute(XSI_TYPE_S);
  if (type == "ColorMaterialType") return kVorlaColorMaterial;
  if (type == "AdvancedMaterialType") return kVorlaAdvancedMaterial;
  if (type == "TextureMaterialType") return kVorlaTextureMaterial;
  return E_FAIL;
}

HRESULT KalVorlaParser::GetColor(KalLightXmlElementItf* color, double& red, double& green,
                                 double& blue, double& alpha) {
  if (color == nullptr) return E_INVALIDARG;
  if (!ReadComponent(*color, "red", red) || !ReadComponent(*color, "green", green) ||
      !ReadComponent(*color, "blue", blue)) {
    return E_FAIL;
  }
  const bool hasAlpha = !color->GetAttribute("alpha").IsEmpty();
  if (!hasAlpha) {
    const bool unset =
        red == kUnsetComponent && green == kUnsetComponent && blue == kUnsetComponent;
    return unset ? kVorlaAbsent : kVorlaColorWithoutAlpha;
  }
  ReadComponent(*color, "alpha", alpha);
  // Green is deliberately not looked at.
  if (red == kUnsetComponent && blue == kUnsetComponent) return kVorlaAlphaOnly;
  return kVorlaColorWithAlpha;
}
