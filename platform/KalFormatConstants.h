// Element and attribute names of the Vorla format.
#ifndef KAL_FORMAT_CONSTANTS_H
#define KAL_FORMAT_CONSTANTS_H

#include "KalUnicodeString.h"

extern const KalUnicodeString ASSOCIATED_DATA_S;
extern const KalUnicodeString EXACT_S;
extern const KalUnicodeString FORMAT_S;
extern const KalUnicodeString GENERAL_ATTRIBUTES_TYPE_S;
extern const KalUnicodeString GEOMETRIC_REPRESENTATION_SET_S;
extern const KalUnicodeString GRAPHIC_MATERIAL_SET_S;
extern const KalUnicodeString HEADER_S;
extern const KalUnicodeString ID_S;
extern const KalUnicodeString INSTANCE_3D_TYPE_S;
extern const KalUnicodeString INSTANCE_REP_TYPE_S;
extern const KalUnicodeString IS_AGGREGATED_BY_S;
extern const KalUnicodeString IS_INSTANCE_OF_S;
extern const KalUnicodeString LINE_ATTRIBUTES_TYPE_S;
extern const KalUnicodeString MANIFEST_S;
extern const KalUnicodeString OWNER_S;
extern const KalUnicodeString PRODUCT_STRUCTURE_S;
extern const KalUnicodeString REFERENCE_3D_TYPE_S;
extern const KalUnicodeString REFERENCE_REP_TYPE_S;
extern const KalUnicodeString ROOT_S;
extern const KalUnicodeString SCHEMA_VERSION_S;
extern const KalUnicodeString SPECIFIC_EXTENSION_SET_S;
extern const KalUnicodeString SURFACE_ATTRIBUTES_TYPE_S;
extern const KalUnicodeString TESSELLATED_S;
extern const KalUnicodeString VERSION_S;
extern const KalUnicodeString XSI_TYPE_S;

// Format services shared with other importers of the format.
class KalVorlaImportUtilities {
 public:
  // File name (without directory) of the last Vorla archive opened.
  static KalUnicodeString _VorlaArchiveFile;
};

#endif
