// Arrays handed to the caller through T** outputs.
#ifndef KAL_VORLA_CALLER_ARRAYS_H
#define KAL_VORLA_CALLER_ARRAYS_H

#include <new>

namespace kalvorla {

// Allocates `count` zeros and hands them to the caller through `out` at once, so they are the
// caller's even if filling them fails. An array this same call handed over before through
// `out` (`made`) is released first: only the last one can reach the caller. Null when memory
// runs out (the output then holds null).
template <class T>
T* HandOver(T** out, T*& made, int count) {
  if (made != nullptr && *out == made) delete[] made;
  made = new (std::nothrow) T[count]();
  *out = made;
  return made;
}

}  // namespace kalvorla

#endif
