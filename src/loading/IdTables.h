// Reads through the identifier tables' records.
#ifndef KAL_VORLA_ID_TABLES_H
#define KAL_VORLA_ID_TABLES_H

#include "KalHashTable.h"
#include "KalRawColl.h"
#include "KalVorlaReferenceAndChild.h"

namespace kalvorla {

// Appends to `out` the elements of `table` whose ids `record` aggregates, in ascending id
// order. The ids are sorted in place on the stored record, for every later caller too.
inline void AppendAggregated(KalVorlaReferenceAndChild* record, KalHashTable* table,
                             KalRawCollPV* out) {
  record->children.QuickSort();
  for (int i = 1; i <= record->children.Size(); ++i) {
    KalVorlaNodeAndId probe;
    probe.id = record->children[i];
    // Ids of the other kind of aggregated element share the list and are not in `table`.
    if (auto* found = static_cast<KalVorlaNodeAndId*>(table->Locate(&probe)))
      out->Append(found->node);
  }
}

inline KalVorlaReferenceAndChild* FindReferenceRecord(KalHashTable* table, int id) {
  KalVorlaReferenceAndChild probe;
  probe.id = id;
  return static_cast<KalVorlaReferenceAndChild*>(table->Locate(&probe));
}

}  // namespace kalvorla

#endif
