#ifndef KAL_VORLA_URN_TYPE_H
#define KAL_VORLA_URN_TYPE_H

#include <cstdint>

// Kind of a "urn:VORLA:" string.
enum KalVorlaUrnType : std::int32_t {
  KalVorlaUrnReference = 0,
  KalVorlaUrnRepresentation = 1,
  KalVorlaUrnTechRep = 2,
};

#endif
