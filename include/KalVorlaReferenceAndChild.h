// Record of the reference tables: a reference, its id and the ids of what it aggregates.
#ifndef KAL_VORLA_REFERENCE_AND_CHILD_H
#define KAL_VORLA_REFERENCE_AND_CHILD_H

#include "KalRawColl.h"
#include "KalVorlaNodeAndId.h"

class KalVorlaReferenceAndChild : public KalVorlaNodeAndId {
 public:
  KalVorlaReferenceAndChild() : children(0) {
    node = nullptr;
    id = 0;
  }
  ~KalVorlaReferenceAndChild() override {
    node = nullptr;
    id = 0;
    children.RemoveAll(1);
  }

  // Ids of the Instance3D and InstanceRep elements aggregated by this reference, in
  // document order, both kinds in one list.
  KalRawCollint children;
};

int DeleteVorlaReferenceAndChild(KalVorlaReferenceAndChild* record);

#endif
