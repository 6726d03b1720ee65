// Result codes of KalVorlaParser beyond the common S_OK, S_FALSE and E_ codes.
// Positive codes are successes that say what was found; callers judge by sign.
#ifndef KAL_VORLA_RESULT_CODES_H
#define KAL_VORLA_RESULT_CODES_H

#include "KalHResult.h"

constexpr HRESULT kVorlaLocationExternal = 3;
constexpr HRESULT kVorlaLocationLocal = 4;
constexpr HRESULT kVorlaNoGraphicProperties = 5;
constexpr HRESULT kVorlaAbsent = 8;
constexpr HRESULT kVorlaSurfaceColor = 9;
constexpr HRESULT kVorlaSurfaceMaterialId = 10;
constexpr HRESULT kVorlaSurfaceMaterialApplication = 11;
constexpr HRESULT kVorlaNoSuchMaterial = 12;
constexpr HRESULT kVorlaColorMaterial = 13;
constexpr HRESULT kVorlaAdvancedMaterial = 14;
constexpr HRESULT kVorlaTextureMaterial = 15;
constexpr HRESULT kVorlaLineWithoutColor = 16;
constexpr HRESULT kVorlaCustomViewpoint = 17;
constexpr HRESULT kVorlaPerspectiveViewpoint = 18;
constexpr HRESULT kVorlaParallelViewpoint = 19;
constexpr HRESULT kVorlaColorWithAlpha = 20;
constexpr HRESULT kVorlaColorWithoutAlpha = 21;
constexpr HRESULT kVorlaAlphaOnly = 22;
constexpr HRESULT kVorlaVersionNewerAccepted = 23;
constexpr HRESULT kVorlaFormatNotSupported = 24;
constexpr HRESULT kVorlaCopyMode = 25;

constexpr HRESULT kVorlaBadArguments = static_cast<HRESULT>(0x80000001u);
constexpr HRESULT kVorlaVersionRefused = static_cast<HRESULT>(0x80000004u);

#endif
