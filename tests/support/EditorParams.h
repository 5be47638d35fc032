// Editor command parameters as the tests write them: Magn("Chnl", 3) is the
// keyword 'Chnl' with an unsigned value, Long a signed one, Text bytes.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "model/UStreamReader.h"
#include "output/VX_AE_Handlers.h"

inline SVXAEParam Magn(const char (&inKeyword)[5], uint32_t inValue) {
    return {VXTag(inKeyword), inValue};
}
inline SVXAEParam Long(const char (&inKeyword)[5], int32_t inValue) {
    return {VXTag(inKeyword), inValue};
}
inline SVXAEParam Text(const char (&inKeyword)[5], std::vector<uint8_t> inValue) {
    return {VXTag(inKeyword), std::move(inValue)};
}
