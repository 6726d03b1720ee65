// Document types of representations, as KalVorlaParser hands them to callers.
#ifndef KAL_VORLA_DOCUMENT_TYPES_H
#define KAL_VORLA_DOCUMENT_TYPES_H

constexpr char kVorlaDocTypeTg1[] = "REP_DOC_TYPE_TG1";  // tessellated, version 1
constexpr char kVorlaDocTypeTg2[] = "REP_DOC_TYPE_TG2";  // tessellated, version 2
constexpr char kVorlaDocTypeEg1[] = "REP_DOC_TYPE_EG1";  // exact geometry

#endif
