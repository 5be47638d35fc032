#include "text/VXKeyNames.h"

#include <cctype>
#include <string>

namespace {

struct SKeyName {
    uint8_t code;
    const char* name;
};

// The US ANSI layout's virtual key codes under the names of the keys at their
// places on a PC keyboard (X keysym names). Command is the left Meta (Super)
// key, Option the left Alt; Help sits where Insert is, the keypad's Clear
// where Num Lock is, and 10 is the extra key of ISO keyboards beside left
// Shift. The first entry of a code is the name written for it.
// clang-format off
constexpr SKeyName kNames[] = {
    {0, "A"}, {1, "S"}, {2, "D"}, {3, "F"}, {4, "H"}, {5, "G"}, {6, "Z"}, {7, "X"},
    {8, "C"}, {9, "V"}, {10, "ISO_Extra"}, {11, "B"}, {12, "Q"}, {13, "W"}, {14, "E"},
    {15, "R"}, {16, "Y"}, {17, "T"}, {18, "1"}, {19, "2"}, {20, "3"}, {21, "4"},
    {22, "6"}, {23, "5"}, {24, "Equal"}, {25, "9"}, {26, "7"}, {27, "Minus"}, {28, "8"},
    {29, "0"}, {30, "BracketRight"}, {31, "O"}, {32, "U"}, {33, "BracketLeft"}, {34, "I"},
    {35, "P"}, {36, "Return"}, {36, "Enter"}, {37, "L"}, {38, "J"}, {39, "Apostrophe"},
    {40, "K"}, {41, "Semicolon"}, {42, "Backslash"}, {43, "Comma"}, {44, "Slash"},
    {45, "N"}, {46, "M"}, {47, "Period"}, {48, "Tab"}, {49, "Space"}, {50, "Grave"},
    {51, "BackSpace"}, {53, "Escape"}, {53, "Esc"}, {54, "Command_R"}, {54, "Meta_R"},
    {55, "Command"}, {55, "Meta_L"}, {55, "Super_L"}, {56, "Shift"}, {56, "Shift_L"},
    {57, "Caps_Lock"}, {58, "Option"}, {58, "Alt_L"}, {59, "Control"}, {59, "Control_L"},
    {59, "Ctrl"}, {60, "Shift_R"}, {61, "Option_R"}, {61, "Alt_R"}, {62, "Control_R"},
    {64, "F17"}, {65, "KP_Decimal"}, {67, "KP_Multiply"}, {69, "KP_Add"},
    {71, "Num_Lock"}, {71, "Clear"}, {75, "KP_Divide"}, {76, "KP_Enter"},
    {78, "KP_Subtract"}, {79, "F18"}, {80, "F19"}, {81, "KP_Equal"}, {82, "KP_0"},
    {83, "KP_1"}, {84, "KP_2"}, {85, "KP_3"}, {86, "KP_4"}, {87, "KP_5"}, {88, "KP_6"},
    {89, "KP_7"}, {90, "F20"}, {91, "KP_8"}, {92, "KP_9"}, {96, "F5"}, {97, "F6"},
    {98, "F7"}, {99, "F3"}, {100, "F8"}, {101, "F9"}, {103, "F11"}, {105, "F13"},
    {106, "F16"}, {107, "F14"}, {109, "F10"}, {111, "F12"}, {113, "F15"},
    {114, "Insert"}, {114, "Help"}, {115, "Home"}, {116, "Page_Up"}, {117, "Delete"},
    {118, "F4"}, {119, "End"}, {120, "F2"}, {121, "Page_Down"}, {122, "F1"},
    {123, "Left"}, {124, "Right"}, {125, "Down"}, {126, "Up"},
};
// clang-format on

std::string Folded(std::string_view inName) {
    std::string folded;
    for (char c : inName) {
        if (c == '_' || c == '-' || c == ' ') continue;
        folded += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return folded;
}

}  // namespace

const char* VXKeyName(uint8_t inVirtualKey) {
    for (const SKeyName& k : kNames)
        if (k.code == inVirtualKey) return k.name;
    return nullptr;
}

std::optional<uint8_t> VXKeyFromName(std::string_view inName) {
    const std::string folded = Folded(inName);
    if (folded.empty()) return std::nullopt;
    for (const SKeyName& k : kNames)
        if (Folded(k.name) == folded) return k.code;
    return std::nullopt;
}
