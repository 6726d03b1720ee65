// Record of the parser's identifier tables: an element and its local id.
#ifndef KAL_VORLA_NODE_AND_ID_H
#define KAL_VORLA_NODE_AND_ID_H

#include "KalLightXmlElementItf.h"

class KalVorlaNodeAndId {
 public:
  KalVorlaNodeAndId() : node(nullptr), id(0) {}
  virtual ~KalVorlaNodeAndId() {
    node = nullptr;
    id = 0;
  }

  KalLightXmlElementItf* node;  // borrowed from the parsed document
  int id;
};

// Table callbacks: records are hashed and compared by id alone.
unsigned int KalVorlaHashVorlaNodeAndId(const void* record);
// 0 when both records are non-null with equal ids, 1 otherwise.
int KalVorlaCompareVorlaNodeAndId(const void* a, const void* b);
// Deletes the record (null is fine); always 0.
int DeleteVorlaNodeAndId(KalVorlaNodeAndId* record);

#endif
