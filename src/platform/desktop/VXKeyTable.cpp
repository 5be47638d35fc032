#include "platform/desktop/VXKeyTable.h"

#include <libevdev/libevdev.h>
#include <linux/input-event-codes.h>

#include <array>

namespace {

// The virtual key codes of the US ANSI keyboard and the key at the same place
// on a PC keyboard: Return is Enter, Delete is Backspace, forward delete is
// Delete, Command is Meta (Super), Option is Alt. Help sits where Insert is,
// the keypad's Clear where Num Lock is, and 10 is the extra key of ISO
// keyboards beside left Shift. The fn key is left out: it never reaches
// applications, and its evdev code is beyond what an X keycode can carry.
// clang-format off
constexpr SVXKey kKeys[] = {
    {0, KEY_A},           {1, KEY_S},           {2, KEY_D},           {3, KEY_F},
    {4, KEY_H},           {5, KEY_G},           {6, KEY_Z},           {7, KEY_X},
    {8, KEY_C},           {9, KEY_V},           {10, KEY_102ND},      {11, KEY_B},
    {12, KEY_Q},          {13, KEY_W},          {14, KEY_E},          {15, KEY_R},
    {16, KEY_Y},          {17, KEY_T},          {18, KEY_1},          {19, KEY_2},
    {20, KEY_3},          {21, KEY_4},          {22, KEY_6},          {23, KEY_5},
    {24, KEY_EQUAL},      {25, KEY_9},          {26, KEY_7},          {27, KEY_MINUS},
    {28, KEY_8},          {29, KEY_0},          {30, KEY_RIGHTBRACE}, {31, KEY_O},
    {32, KEY_U},          {33, KEY_LEFTBRACE},  {34, KEY_I},          {35, KEY_P},
    {36, KEY_ENTER},      {37, KEY_L},          {38, KEY_J},          {39, KEY_APOSTROPHE},
    {40, KEY_K},          {41, KEY_SEMICOLON},  {42, KEY_BACKSLASH},  {43, KEY_COMMA},
    {44, KEY_SLASH},      {45, KEY_N},          {46, KEY_M},          {47, KEY_DOT},
    {48, KEY_TAB},        {49, KEY_SPACE},      {50, KEY_GRAVE},      {51, KEY_BACKSPACE},
    {53, KEY_ESC},        {54, KEY_RIGHTMETA},  {55, KEY_LEFTMETA},   {56, KEY_LEFTSHIFT},
    {57, KEY_CAPSLOCK},   {58, KEY_LEFTALT},    {59, KEY_LEFTCTRL},   {60, KEY_RIGHTSHIFT},
    {61, KEY_RIGHTALT},   {62, KEY_RIGHTCTRL},  {64, KEY_F17},        {65, KEY_KPDOT},
    {67, KEY_KPASTERISK}, {69, KEY_KPPLUS},     {71, KEY_NUMLOCK},    {75, KEY_KPSLASH},
    {76, KEY_KPENTER},    {78, KEY_KPMINUS},    {79, KEY_F18},        {80, KEY_F19},
    {81, KEY_KPEQUAL},    {82, KEY_KP0},        {83, KEY_KP1},        {84, KEY_KP2},
    {85, KEY_KP3},        {86, KEY_KP4},        {87, KEY_KP5},        {88, KEY_KP6},
    {89, KEY_KP7},        {90, KEY_F20},        {91, KEY_KP8},        {92, KEY_KP9},
    {96, KEY_F5},         {97, KEY_F6},         {98, KEY_F7},         {99, KEY_F3},
    {100, KEY_F8},        {101, KEY_F9},        {103, KEY_F11},       {105, KEY_F13},
    {106, KEY_F16},       {107, KEY_F14},       {109, KEY_F10},       {111, KEY_F12},
    {113, KEY_F15},       {114, KEY_INSERT},    {115, KEY_HOME},      {116, KEY_PAGEUP},
    {117, KEY_DELETE},    {118, KEY_F4},        {119, KEY_END},       {120, KEY_F2},
    {121, KEY_PAGEDOWN},  {122, KEY_F1},        {123, KEY_LEFT},      {124, KEY_RIGHT},
    {125, KEY_DOWN},      {126, KEY_UP},
};
// clang-format on

// Virtual key codes are below 128; the stream gives them 8 bits. One slot per
// possible code, so that a lookup on the posting path is one index.
constexpr std::array<int16_t, 256> MakeIndex() {
    std::array<int16_t, 256> index{};
    for (auto& slot : index) slot = -1;
    for (const SVXKey& key : kKeys) index[key.virtualKey] = static_cast<int16_t>(key.evdevCode);
    return index;
}
constexpr std::array<int16_t, 256> kIndex = MakeIndex();

}  // namespace

std::span<const SVXKey> VXKeyTable() {
    return kKeys;
}

int VXEvdevCodeForVirtualKey(uint16_t inVirtualKey) {
    return inVirtualKey < kIndex.size() ? kIndex[inVirtualKey] : -1;
}

uint8_t VXXKeycodeForVirtualKey(uint16_t inVirtualKey) {
    const int code = VXEvdevCodeForVirtualKey(inVirtualKey);
    // Every code of the table is below 248, so its X keycode fits 8 bits.
    return code < 0 ? 0 : static_cast<uint8_t>(code + kVXXKeycodeOffset);
}

const char* VXEvdevKeyName(uint16_t inEvdevCode) {
    const char* name = libevdev_event_code_get_name(EV_KEY, inEvdevCode);
    return name ? name : "?";
}
