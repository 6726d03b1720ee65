// KalVorlaParser: reads one Vorla document (a zip archive or a plain XML file) and answers
// questions about its product structure and presentation data.
//
// A caller creates a parser with new, calls InitParsing once, queries it, and deletes it.
// Element pointers handed out are borrowed from the parser's document and stay valid until
// the parser is deleted. Parsers are used from one thread: a parser switches the whole
// process to the "C" locale while it lives, and one archive at a time is open for the whole
// process (shared by all parsers, closed by the parser that opened it).
#ifndef KAL_VORLA_PARSER_H
#define KAL_VORLA_PARSER_H

#include "KalBaseUnknown.h"
#include "KalHResult.h"
#include "KalLightXmlElementItf.h"
#include "KalListPtrKalLightXmlElementItf.h"
#include "KalRawColl.h"
#include "KalUnicodeString.h"
#include "KalVorlaDocumentTypes.h"
#include "KalVorlaNodeAndId.h"
#include "KalVorlaReferenceAndChild.h"
#include "KalVorlaResultCodes.h"
#include "KalVorlaUrnType.h"

class KalHashTable;
class KalSysZipFile;
struct KalVorlaLookupIndexes;

class KalVorlaParser : public KalBaseUnknown {
 public:
  // Identity.
  static KalMetaClass* MetaObject();
  KalMetaClass* GetMetaObject() const override;
  static const char* ClassName();
  const char* IsA() const override;
  static KalClassId ClassId();
  int IsAKindOf(const char* name) const override;
  // Always null: parsers are created with new.
  static KalBaseUnknown* CreateItself();

  KalVorlaParser();
  ~KalVorlaParser() override;
  KalVorlaParser(const KalVorlaParser&) = delete;
  KalVorlaParser& operator=(const KalVorlaParser&) = delete;

  HRESULT GetFilePath(KalUnicodeString& path);

  // Loading. S_OK or kVorlaVersionNewerAccepted on success.
  HRESULT InitParsing(const KalUnicodeString& path);
  HRESULT GetVorlaRootFilePath(const KalUnicodeString& path, KalUnicodeString& rootPath);
  HRESULT CheckVorlaVersion();
  HRESULT RetrieveContainerNodes();
  HRESULT RetrieveRootReferenceNode();
  HRESULT RetrieveApplicativeSetNodes();

  // Element search and attribute access. "FromType" matches the xsi:type attribute,
  // "FromName" the tag.
  HRESULT GetVorlaChildNodeFromType(KalLightXmlElementItf* parent, const KalUnicodeString& type,
                                    KalLightXmlElementItf** child);
  HRESULT GetVorlaChildNodeFromName(KalLightXmlElementItf* parent, const KalUnicodeString& name,
                                    KalLightXmlElementItf** child);
  HRESULT GetVorlaNodeFromOtherIDAttribute(int id, const KalUnicodeString& elementType,
                                           const KalUnicodeString& attributeName,
                                           KalLightXmlElementItf** node);
  HRESULT GetValueString(KalUnicodeString childType, KalLightXmlElementItf* parent,
                         KalUnicodeString& value);
  HRESULT GetAttributeString(KalUnicodeString attributeName, KalLightXmlElementItf* element,
                             KalUnicodeString& value);

  // Lookups by local id, counts and container accessors.
  HRESULT GetInstance3DFromLocalID(int id, KalLightXmlElementItf** node);
  HRESULT GetReference3DFromLocalID(int id, KalLightXmlElementItf** node);
  HRESULT GetInstanceRepFromLocalID(int id, KalLightXmlElementItf** node);
  HRESULT GetReferenceRepFromLocalID(int id, KalLightXmlElementItf** node);
  HRESULT GetNumberOfInstances(int& count);
  HRESULT GetNumberOfReferences(int& count);
  HRESULT GetNumberOfRepresentations(int& count);
  HRESULT GetProductStructureRootReference(KalLightXmlElementItf** node);
  HRESULT GetDefaultViewNode(KalLightXmlElementItf** node);

  // Applicative sets.
  HRESULT GetPresentationSetNode(KalLightXmlElementItf** node);
  HRESULT GetMeasureSetNode(KalLightXmlElementItf** node);
  HRESULT GetSectionSetNode(KalLightXmlElementItf** node);
  HRESULT GetAnimationSetNode(KalLightXmlElementItf** node);
  HRESULT GetVorlaRootNode(KalLightXmlElementItf** node);
  HRESULT GetSpecificExtensionSetNode(KalLightXmlElementItf** node);
  HRESULT GetGraphicMaterialSetNode(KalLightXmlElementItf** node);
  HRESULT GetSpecificExtensionNode(unsigned int id, KalLightXmlElementItf** node);

  // Value lists and matrices. Values are separated by single blanks (" ").
  HRESULT CountOccurences(KalUnicodeString tag, int& count);
  HRESULT GetNextValueInList(KalUnicodeString& list, int start, int& value, int& next);
  HRESULT GetNextValueInList(KalUnicodeString& list, int start, float& value, int& next);
  HRESULT GetNextValueInList(KalUnicodeString& list, int start, double& value, int& next);
  HRESULT ConvertVector(KalLightXmlElementItf* element, float* values);
  HRESULT ConvertMatrix(KalLightXmlElementItf* element, float* values);
  HRESULT ConvertMatrix(KalLightXmlElementItf* element, double* values);

  // URNs ("urn:VORLA:<kind>:loc:<id>" or "urn:VORLA:<kind>:<locality>:<file>.vorla#<id>").
  HRESULT ExtractVorlaUrnDatas(const KalUnicodeString& urn, KalVorlaUrnType& type,
                               unsigned char& isLocal, int& id, KalUnicodeString& fileName);
  HRESULT ExtractVorlaUrnDatas(const KalUnicodeString& urn, KalVorlaUrnType& type,
                               unsigned char& isLocal, KalUnicodeString& id,
                               KalUnicodeString& fileName);

  // Instances and references. The matrix arrays are new[] arrays the caller releases with
  // delete[] whenever the output is not null, failures included.
  HRESULT GetReference3DFromInstance3D(int instanceId, KalLightXmlElementItf** reference);
  // For a reference in another file: a null element, that file's path and the reference's
  // id in it. For a local one: the element, an empty path and -1.
  HRESULT GetReference3DFromInstance3D(int instanceId, KalLightXmlElementItf** reference,
                                       KalUnicodeString& fileName, int& referenceId);
  // Empties `instances`, then fills it with the reference's Instance3D elements in ascending
  // order of their ids.
  HRESULT GetInstancesFromReference3D(int referenceId, KalRawCollPV* instances);
  HRESULT GetEntityLocalID(KalLightXmlElementItf* element, int& id);
  HRESULT GetEntityLocalID(KalLightXmlElementItf* element, KalUnicodeString& id);
  HRESULT GetEntityName(KalLightXmlElementItf* element, KalUnicodeString& name);
  HRESULT GetInstanceMatrix(KalLightXmlElementItf* instance, float** matrix);
  HRESULT GetInstanceMatrix(KalLightXmlElementItf* instance, double** matrix);

  // Representation navigation. The collections are appended to, never emptied.
  HRESULT GetRepresentationDocType(KalLightXmlElementItf* repFormat, KalUnicodeString& docType);
  HRESULT GetRepresentationUrn(KalLightXmlElementItf* repFormat, KalUnicodeString& urn);
  HRESULT GetRepInstancesFromReference3D(KalLightXmlElementItf* reference,
                                         KalRawCollPV* repInstances);
  HRESULT GetReferenceRepFromInstanceRep(KalLightXmlElementItf* repInstance,
                                         KalLightXmlElementItf** repReference,
                                         KalUnicodeString& path, int& repReferenceId);
  HRESULT GetRepFormatsFromRepReference(KalLightXmlElementItf* repReference,
                                        KalRawCollPV* repFormats);
  // A representation in another file comes back as a copy the caller deletes, with the
  // result kVorlaCopyMode.
  HRESULT GetRepresentationFromRepFormat(KalLightXmlElementItf* repFormat,
                                         KalLightXmlElementItf** representation);

  // Representation locations and lookups by id. kVorlaLocationLocal gives the local id as
  // text, kVorlaLocationExternal a file name. The lookups give S_FALSE when nothing matches;
  // with mode kVorlaCopyMode they hand out a copy the caller deletes and return that mode.
  HRESULT GetRepLocationFromRepFormat(KalLightXmlElementItf* repFormat, KalUnicodeString& location);
  HRESULT GetRepresentationNode(unsigned int id, KalLightXmlElementItf** representation);
  HRESULT GetRepresentationNodeFromId(unsigned int id, KalLightXmlElementItf** representation,
                                      long mode);
  HRESULT GetTechRepNodeFromId(unsigned int id, KalLightXmlElementItf** techRep, long mode);

  // Geometry buffers: the bytes of a representation and their document type tag. A buffer
  // written is a new[] array the caller releases with delete[], whatever the result code (a
  // representation read before a later one with the same id fails still hands its buffer
  // over). kVorlaFormatNotSupported for a format or version this library does not read; S_OK
  // with the buffer unwritten when no representation matches.
  HRESULT GetGeometricRepresentationBuffer(KalLightXmlElementItf* repFormat, char** buffer,
                                           unsigned int& size, KalUnicodeString& format);
  HRESULT GetRepBufferFromUrn(const KalUnicodeString& urn, char** buffer, unsigned int& size,
                              KalUnicodeString& format);
  HRESULT GetBufferFromGeometricRepresentationID(const KalUnicodeString& id, char*& buffer,
                                                 unsigned int& size, KalUnicodeString& format);

  // Graphic properties. Positive codes say what was found (include/KalVorlaResultCodes.h).
  HRESULT GetGraphicPropertiesNode(KalLightXmlElementItf* node,
                                   KalLightXmlElementItf** graphicProperties);
  HRESULT GetSurfaceAttributesElement(KalLightXmlElementItf* graphicProperties,
                                      KalLightXmlElementItf** element);
  // lineType: 1 SOLID, 2 DOTTED, 3 DASHED, 4 DOT-DASHED, 5 PHANTOM, 6 SMALL-DOTTED,
  // 7 JIS-AXIS, 0xFFFFFFFF anything else. The colour outputs are left as the caller set them.
  HRESULT GetLineAttributes(KalLightXmlElementItf* graphicProperties, double& red, double& green,
                            double& blue, unsigned int& lineType, float& thickness);
  HRESULT GetBehaviourAttributes(KalLightXmlElementItf* graphicProperties, unsigned char& visible,
                                 unsigned char& selectable);
  HRESULT GetGraphicMaterialNode(unsigned int materialId, KalLightXmlElementItf** material);
  HRESULT GetColor(KalLightXmlElementItf* color, double& red, double& green, double& blue,
                   double& alpha);

  // Views and viewpoints. GetAlternateViewList (the default view's id 0 first) must come
  // before GetAlternateView. The viewpoint arrays are new[] arrays the caller releases with
  // delete[] whenever written, failures included; outputs without data are left unwritten.
  HRESULT GetAlternateViewList(KalRawCollint& viewIds);
  HRESULT GetAlternateView(int viewId, KalLightXmlElementItf** view, KalUnicodeString& name,
                           KalUnicodeString& description);
  HRESULT GetAlternateViewViewpoint(KalLightXmlElementItf* view, KalLightXmlElementItf** viewpoint);
  HRESULT GetCustomViewpointData(KalLightXmlElementItf* viewpoint, float** viewMatrix,
                                 float** projectionMatrix);
  HRESULT GetConicViewpointData(KalLightXmlElementItf* viewpoint, float** position, float** sight,
                                float** right, float** up, float& targetDistance,
                                float& nearPlaneDistance, float& farPlaneDistance,
                                float& fieldOfView);
  HRESULT GetCylindricViewpointData(KalLightXmlElementItf* viewpoint, float** position,
                                    float** sight, float** right, float** up, float& targetDistance,
                                    float& nearPlaneDistance, float& farPlaneDistance,
                                    float& visualizedHeight);

  // View properties: per-occurrence overrides of a view.
  HRESULT GetOccurenceIdList(KalLightXmlElementItf* view, KalRawCollint& occurrenceIds);
  HRESULT GetAlternateViewProperty(KalLightXmlElementItf* view, int occurrenceId,
                                   KalLightXmlElementItf** property);
  HRESULT GetAlternateViewPropertyData(KalLightXmlElementItf* property, double** relativePosition,
                                       KalLightXmlElementItf** graphicProperties,
                                       KalUnicodeString& alternateRepresentation);

 private:
  friend struct KalVorlaParserInspector;  // white-box access for the library's own tests

  static KalMetaClass* meta_object;

  // Where a file named by an external URN is: beside this document for a relative name
  // when no archive is open; otherwise the name itself (an absolute path, or an entry of
  // the open archive).
  KalUnicodeString PathOfOtherFile(const KalUnicodeString& fileName) const;
  // The lookup indexes, made on first use; null when plain scans are asked for or memory
  // runs out (the lookups then scan, with the same results).
  KalVorlaLookupIndexes* Indexes();

  // The one archive open for the whole process, and its table of contents.
  static KalSysZipFile* _pZipFile;
  static KalUnicodeString* _pZippedFiles;
  static unsigned int* _pFileSize;
  static unsigned int _NbZippedFiles;

  KalLightXmlElementItf* _pRootNode;
  KalLightXmlElementItf* _pProductStructureNode;
  KalLightXmlElementItf* _pSpareNode;
  KalLightXmlElementItf* _pRootReferenceNode;
  KalLightXmlElementItf* _pGeometricRepresentationSetNode;
  KalLightXmlElementItf* _pGraphicMaterialSetNode;
  KalLightXmlElementItf* _pAlternateViewSetNode;
  KalLightXmlElementItf* _pDefaultViewNode;
  KalLightXmlElementItf* _pAnimationSetNode;
  KalLightXmlElementItf* _pPresentationSetNode;
  KalLightXmlElementItf* _pMeasureSetNode;
  KalLightXmlElementItf* _pSectionSetNode;
  KalLightXmlElementItf* _pSpecificExtensionSetNode;
  char* _pSavedLocale;
  KalHashTable* _pAlternateViewTable;
  KalHashTable* _pInstanceTable;
  KalHashTable* _pReferenceTable;
  KalHashTable* _pInstanceRepTable;
  KalHashTable* _pReferenceRepTable;
  KalHashTable* _pSpecificExtensionTable;
  KalListPtrKalLightXmlElementItf _GraphicPropertiesList;
  KalListPtrKalLightXmlElementItf _RepFormatList;
  KalListPtrKalLightXmlElementItf _GraphicMaterialList;
  KalRawCollint _GraphicMaterialIds;
  KalUnicodeString _TempDirectory;
  KalUnicodeString _DocumentDirectory;
  KalUnicodeString _FilePath;
  unsigned char _OwnsArchive;
  // Trees of earlier InitParsing calls on this object: the indexes still point into them, so
  // they live as long as the parser.
  KalRawCollPV _EarlierRootNodes;
  KalVorlaLookupIndexes* _pIndexes;
  bool _PlainScans;  // the library's own tests compare the indexed lookups with the scans
};

#endif
