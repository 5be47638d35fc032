// Model to text. toml++ lays the text out; this file decides what is written:
// a field that holds its default is left out, and a channel control that is
// the same on all sixteen strips (but for its channel) is written once.
#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include <sstream>

#include "model/UVX_ControlClass.h"
#include "text/VXKeyNames.h"
#include "text/VXKeysetText.h"
#include "text/VXKeysetTextNames.h"

using namespace vxtext;

namespace {

// Names hold 8-bit characters; toml++ takes UTF-8 and writes every character
// beyond ASCII as an escape.
std::string Utf8(const std::string& inBytes) {
    std::string out;
    for (unsigned char c : inBytes) {
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

toml::value<int64_t> Hex(uint32_t inValue) {
    toml::value<int64_t> v(int64_t{inValue});
    v.flags(toml::value_flags::format_as_hexadecimal);
    return v;
}

bool Printable(uint32_t inCode) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        const uint32_t c = (inCode >> shift) & 0xFF;
        if (c < 0x20 || c > 0x7E) return false;
    }
    return true;
}

// A four-character code as its characters when they are printable, else as
// the number.
template <typename Table>
void PutCode(Table& t, const char* inKey, uint32_t inCode) {
    if (Printable(inCode)) {
        std::string s;
        for (int shift = 24; shift >= 0; shift -= 8)
            s += static_cast<char>((inCode >> shift) & 0xFF);
        t.insert_or_assign(inKey, s);
    } else {
        t.insert_or_assign(inKey, Hex(inCode));
    }
}

void PutLatched(toml::table& t, uint32_t inLatched) {
    if (inLatched == 1)
        t.insert_or_assign("latched", true);
    else if (inLatched != 0)
        t.insert_or_assign("latched", int64_t{inLatched});
}

void PutMode(toml::table& t, uint32_t inMode) {
    if (inMode == 0)
        t.insert_or_assign("mode", "none");
    else if (inMode == kModeB)
        t.insert_or_assign("mode", "B");
    else if (inMode == kModeC)
        t.insert_or_assign("mode", "C");
    else
        t.insert_or_assign("mode", int64_t{inMode});
}

void PutModifiers(toml::table& t, uint16_t inModifiers) {
    if (inModifiers == 0) return;
    toml::array list;
    uint16_t rest = inModifiers;
    for (const SModifier& m : kModifiers) {
        if (inModifiers & m.bit) list.push_back(m.name);
        rest = static_cast<uint16_t>(rest & ~m.bit);
    }
    if (rest) list.push_back(Hex(rest));
    t.insert_or_assign("modifiers", std::move(list));
}

// Which hex digits of a channel template stand for the strip's channel: bit
// 2i for the high digit of byte i, 2i + 1 for the low one.
using NibbleMask = uint32_t;

std::string HexDigit(uint8_t inNibble) {
    return std::string(1, "0123456789ABCDEF"[inNibble & 0xF]);
}

// The template as its used bytes, then (after '|') the stored bytes up to the
// last that is not zero; a length above the template's size is written apart.
void PutTemplate(toml::table& t, const SVXActionModel& a, size_t inSize, NibbleMask inMask) {
    const size_t used = std::min<size_t>(a.length, inSize);
    size_t end = used;
    for (size_t i = used; i < inSize; ++i)
        if (a.message[i] != 0 || (inMask >> (2 * i) & 3)) end = i + 1;
    std::string text;
    for (size_t i = 0; i < end; ++i) {
        if (i == used) text += text.empty() ? "|" : " |";
        if (!text.empty()) text += ' ';
        text += (inMask >> (2 * i) & 1) ? "n" : HexDigit(a.message[i] >> 4);
        text += (inMask >> (2 * i + 1) & 1) ? "n" : HexDigit(a.message[i]);
    }
    t.insert_or_assign("template", text);
    if (a.length > inSize) t.insert_or_assign("length", int64_t{a.length});
}

void PutKind(toml::table& t, uint32_t inKind) {
    if (inKind == kMIDIOneWay)
        t.insert_or_assign("kind", "one-way");
    else if (inKind == kMIDITwoWay)
        t.insert_or_assign("kind", "two-way");
    else
        t.insert_or_assign("kind", int64_t{inKind});
}

const char* TypeName(const SVXActionModel& a, bool inButton) {
    switch (a.BaseType()) {
        case vx_action_type_key:
            return "key";
        case vx_action_type_mouse:
            return "mouse";
        case vx_action_type_delay:
            return "delay";
        case vx_action_type_special:
            return "notify";
        case vx_action_type_app_specific:
            return inButton && (a.code == kShuttleRewind || a.code == kShuttleForward) ? "shuttle"
                                                                                       : "app";
        case vx_action_type_midi:
            return "midi";
        default:
            return "emulation";
    }
}

// The fields of one action into t. inControl is the button's number (for a
// channel action, unused); inKeysetMode the default of an emulation's mode.
void PutAction(toml::table& t, const SVXActionModel& a, bool inButton, uint32_t inControl,
               uint32_t inKeysetMode, NibbleMask inMask) {
    const std::string type = TypeName(a, inButton);
    t.insert_or_assign("type", type);
    if (a.type & kVXBuiltInActionFlag) t.insert_or_assign("builtin", true);
    if (!a.name.empty()) t.insert_or_assign("name", Utf8(a.name));
    if (a.legacyID != 0) PutCode(t, "id", a.legacyID);
    if (a.speed != 0 || type == "shuttle") t.insert_or_assign("speed", int64_t{a.speed});
    if (inButton && a.control != inControl) t.insert_or_assign("control", int64_t{a.control});
    switch (a.BaseType()) {
        case vx_action_type_key:
            if (const char* name = VXKeyName(a.keyCode))
                t.insert_or_assign("key", name);
            else
                t.insert_or_assign("key", int64_t{a.keyCode});
            if (a.charCode != 0) t.insert_or_assign("char", int64_t{a.charCode});
            PutModifiers(t, a.modifiers);
            break;
        case vx_action_type_mouse:
            t.insert_or_assign("x", int64_t{a.x});
            t.insert_or_assign("y", int64_t{a.y});
            PutModifiers(t, a.modifiers);
            if (a.captureNow) t.insert_or_assign("capture_now", int64_t{a.captureNow});
            if (a.partialTitle) t.insert_or_assign("partial_title", int64_t{a.partialTitle});
            if (a.mouseOp) t.insert_or_assign("mouse_op", int64_t{a.mouseOp});
            if (a.captureOp) t.insert_or_assign("capture_op", int64_t{a.captureOp});
            if (!a.windowTitle.empty()) t.insert_or_assign("window_title", Utf8(a.windowTitle));
            break;
        case vx_action_type_delay:
            // Seconds (up to an hour) where they come out in hundredths,
            // which read back to the same ticks; ticks otherwise.
            if (a.ticks >= 0 && a.ticks <= 3600 * kTicksPerSecond &&
                a.ticks * 100 % kTicksPerSecond == 0)
                t.insert_or_assign("seconds", double(a.ticks) / kTicksPerSecond);
            else
                t.insert_or_assign("ticks", int64_t{a.ticks});
            break;
        case vx_action_type_special:
            if (a.code != (inButton ? kNotifyCode : 0)) t.insert_or_assign("code", int64_t{a.code});
            break;
        case vx_action_type_app_specific:
            if (type == "shuttle")
                t.insert_or_assign("direction", a.code == kShuttleRewind ? "rewind" : "forward");
            else
                t.insert_or_assign("code", int64_t{a.code});
            break;
        case vx_action_type_midi:
            PutKind(t, a.kind);
            PutTemplate(t, a, 8, inMask);
            break;
        default:
            if (a.mode != inKeysetMode) {
                PutMode(t, a.mode);
            }
            PutTemplate(t, a, 16, inMask);
            if (a.acceptsMIDI == 1)
                t.insert_or_assign("host_midi", true);
            else if (a.acceptsMIDI != 0)
                t.insert_or_assign("host_midi", int64_t{a.acceptsMIDI});
            if (a.unused != std::array<uint32_t, 3>{}) {
                toml::array list;
                for (uint32_t v : a.unused) list.push_back(int64_t{v});
                t.insert_or_assign("unused", std::move(list));
            }
            break;
    }
}

toml::table ChannelControlTable(const SVXChannelControlModel& c, uint32_t inType,
                                uint32_t inKeysetMode, NibbleMask inMask) {
    toml::table t;
    t.is_inline(true);
    if (c.name != kChannelControlNames[inType - kFirstChannelControl])
        t.insert_or_assign("control_name", Utf8(c.name));
    PutLatched(t, c.latched);
    if (c.action) PutAction(t, *c.action, false, inType, inKeysetMode, inMask);
    return t;
}

// Whether control inIndex is the same on every strip but for template digits
// that equal the strip's channel; outMask marks those digits.
bool SameOnEveryStrip(const SVXKeysetModel& k, size_t inIndex, NibbleMask& outMask) {
    outMask = 0;
    const SVXChannelControlModel& first = k.strips[0][inIndex];
    for (size_t s = 1; s < kVXModelStrips; ++s) {
        SVXChannelControlModel other = k.strips[s][inIndex];
        if (first.action.has_value() != other.action.has_value()) return false;
        if (other.action) other.action->message = first.action->message;
        if (!(other == first)) return false;
    }
    if (!first.action) return true;
    for (size_t digit = 0; digit < 32; ++digit) {
        auto nibble = [&](size_t s) {
            const uint8_t byte = k.strips[s][inIndex].action->message[digit / 2];
            return digit % 2 ? byte & 0xF : byte >> 4;
        };
        bool equal = true, channel = true;
        for (size_t s = 0; s < kVXModelStrips; ++s) {
            equal = equal && nibble(s) == nibble(0);
            channel = channel && nibble(s) == static_cast<int>(s);
        }
        if (channel) outMask |= NibbleMask{1} << digit;
        if (!equal && !channel) return false;
    }
    return true;
}

toml::table KeysetTable(const SVXKeysetModel& k) {
    toml::table t;
    t.insert_or_assign("name", Utf8(k.name));
    PutCode(t, "signature", k.signature);
    PutMode(t, k.mode);

    toml::table buttons;
    for (uint32_t n = 0; n < kVXModelButtons; ++n) {
        const SVXButtonModel& b = k.buttons[n];
        if (b == VXDefaultButton(n)) continue;
        toml::table bt;
        if (b.controlName != kControlNames[n])
            bt.insert_or_assign("control_name", Utf8(b.controlName));
        if (b.assignedName != "_") bt.insert_or_assign("assigned", Utf8(b.assignedName));
        PutLatched(bt, b.latched);
        toml::array actions;
        for (const SVXActionModel& a : b.actions) {
            toml::table at;
            at.is_inline(true);
            PutAction(at, a, true, n, k.mode, 0);
            actions.push_back(std::move(at));
        }
        if (!actions.empty()) bt.insert_or_assign("actions", std::move(actions));
        buttons.insert_or_assign(kButtonKeys[n], std::move(bt));
    }
    if (!buttons.empty()) t.insert_or_assign("buttons", std::move(buttons));

    // Controls the same on every strip go into one entry for all strips;
    // the others into one entry per strip, where they differ from a new
    // keyset's.
    toml::table all;
    std::array<toml::table, kVXModelStrips> perStrip;
    for (size_t c = 0; c < kVXModelStripControls; ++c) {
        const uint32_t type = kFirstChannelControl + static_cast<uint32_t>(c);
        const SVXChannelControlModel fresh = VXDefaultChannelControl(type);
        NibbleMask mask = 0;
        if (SameOnEveryStrip(k, c, mask)) {
            if (!(k.strips[0][c] == fresh))
                all.insert_or_assign(kControlKeys[c],
                                     ChannelControlTable(k.strips[0][c], type, k.mode, mask));
            continue;
        }
        for (size_t s = 0; s < kVXModelStrips; ++s) {
            if (!(k.strips[s][c] == fresh))
                perStrip[s].insert_or_assign(kControlKeys[c],
                                             ChannelControlTable(k.strips[s][c], type, k.mode, 0));
        }
    }
    toml::array strips;
    if (!all.empty()) {
        all.insert_or_assign("strips", "all");
        strips.push_back(std::move(all));
    }
    for (size_t s = 0; s < kVXModelStrips; ++s) {
        if (perStrip[s].empty()) continue;
        perStrip[s].insert_or_assign("strip", int64_t(s + 1));
        strips.push_back(std::move(perStrip[s]));
    }
    if (!strips.empty()) t.insert_or_assign("strip", std::move(strips));
    return t;
}

}  // namespace

std::string VXKeysetFileToText(const SVXKeysetFileModel& inFile) {
    toml::table root;
    if (inFile.version != kVXFirstKeysetVersion)
        root.insert_or_assign("version", Hex(inFile.version));
    toml::array keysets;
    for (const SVXKeysetModel& k : inFile.keysets) keysets.push_back(KeysetTable(k));
    root.insert_or_assign("keyset", std::move(keysets));
    std::ostringstream out;
    // No literal or raw Unicode strings: the text stays ASCII, with escapes.
    out << toml::toml_formatter(
        root, toml::format_flags::allow_hexadecimal_integers | toml::format_flags::indentation);
    out << '\n';
    return out.str();
}
