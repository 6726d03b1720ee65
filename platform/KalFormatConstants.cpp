#include "KalFormatConstants.h"

// Borrowed from string literals: no allocation at load time and no static-destruction order
// to worry about.
#define KAL_CONSTANT(name, text) \
  const KalUnicodeString name = KalUnicodeString::Borrow(text, sizeof(text) - 1)

KAL_CONSTANT(ASSOCIATED_DATA_S, "AssociatedData");
KAL_CONSTANT(EXACT_S, "EXACT");
KAL_CONSTANT(FORMAT_S, "format");
KAL_CONSTANT(GENERAL_ATTRIBUTES_TYPE_S, "GeneralAttributesType");
KAL_CONSTANT(GEOMETRIC_REPRESENTATION_SET_S, "GeometricRepresentationSet");
KAL_CONSTANT(GRAPHIC_MATERIAL_SET_S, "GraphicMaterialSet");
KAL_CONSTANT(HEADER_S, "Header");
KAL_CONSTANT(ID_S, "id");
KAL_CONSTANT(INSTANCE_3D_TYPE_S, "Instance3DType");
KAL_CONSTANT(INSTANCE_REP_TYPE_S, "InstanceRepType");
KAL_CONSTANT(IS_AGGREGATED_BY_S, "IsAggregatedBy");
KAL_CONSTANT(IS_INSTANCE_OF_S, "IsInstanceOf");
KAL_CONSTANT(LINE_ATTRIBUTES_TYPE_S, "LineAttributesType");
KAL_CONSTANT(MANIFEST_S, "Manifest.xml");
KAL_CONSTANT(OWNER_S, "owner");
KAL_CONSTANT(PRODUCT_STRUCTURE_S, "ProductStructure");
KAL_CONSTANT(REFERENCE_3D_TYPE_S, "Reference3DType");
KAL_CONSTANT(REFERENCE_REP_TYPE_S, "ReferenceRepType");
KAL_CONSTANT(ROOT_S, "root");
KAL_CONSTANT(SCHEMA_VERSION_S, "SchemaVersion");
KAL_CONSTANT(SPECIFIC_EXTENSION_SET_S, "SpecificExtensionSet");
KAL_CONSTANT(SURFACE_ATTRIBUTES_TYPE_S, "SurfaceAttributesType");
KAL_CONSTANT(TESSELLATED_S, "TESSELLATED");
KAL_CONSTANT(VERSION_S, "version");
KAL_CONSTANT(XSI_TYPE_S, "xsi:type");

KalUnicodeString KalVorlaImportUtilities::_VorlaArchiveFile;
