// Text to model, checked field by field: every mistake is named with its line
// and column, and the first one ends the read.
#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <map>
#include <vector>

#include "model/UVX_ControlClass.h"
#include "text/VXKeyNames.h"
#include "text/VXKeysetText.h"
#include "text/VXKeysetTextNames.h"

using namespace vxtext;

namespace {

// A keyset file is small; anything this large is not one.
constexpr size_t kMaxTextSize = 1 << 20;

struct SError {
    uint32_t line = 0;
    uint32_t column = 0;
    std::string what;
};

// The first failure, carried out of the nested readers.
class CReader {
  public:
    bool Fail(const toml::source_position& inAt, std::string inWhat) {
        if (mError.what.empty()) mError = {inAt.line, inAt.column, std::move(inWhat)};
        return false;
    }
    bool Fail(const toml::node& inAt, std::string inWhat) {
        return Fail(inAt.source().begin, std::move(inWhat));
    }

    // Each key of t must be one of inKeys.
    bool OnlyKeys(const toml::table& t, const std::vector<const char*>& inKeys,
                  const char* inWhere) {
        for (auto&& [key, value] : t) {
            bool known = false;
            for (const char* k : inKeys) known = known || key.str() == k;
            if (known) continue;
            std::string list;
            for (const char* k : inKeys) list += (list.empty() ? "" : ", ") + std::string(k);
            return Fail(key.source().begin, "unknown field '" + std::string(key.str()) + "' in " +
                                                inWhere + " (expected one of: " + list + ")");
        }
        return true;
    }

    // A whole number from inMin to inMax.
    bool Int(const toml::node& n, const char* inField, int64_t inMin, int64_t inMax, int64_t& out) {
        const auto* v = n.as_integer();
        if (!v) return Fail(n, "'" + std::string(inField) + "' must be a whole number");
        if (v->get() < inMin || v->get() > inMax)
            return Fail(n, "'" + std::string(inField) + "' must be from " + std::to_string(inMin) +
                               " to " + std::to_string(inMax));
        out = v->get();
        return true;
    }
    template <typename T>
    bool UInt(const toml::table& t, const char* inField, T& out) {
        const toml::node* n = t.get(inField);
        if (!n) return true;
        int64_t v = 0;
        if (!Int(*n, inField, 0, std::numeric_limits<T>::max(), v)) return false;
        out = static_cast<T>(v);
        return true;
    }

    // A string of 8-bit characters, at most inMax of them.
    bool Text(const toml::node& n, const char* inField, size_t inMax, std::string& out) {
        const auto* v = n.as_string();
        if (!v) return Fail(n, "'" + std::string(inField) + "' must be a string");
        std::string bytes;
        const std::string& s = v->get();
        for (size_t i = 0; i < s.size();) {
            const auto c = static_cast<unsigned char>(s[i]);
            uint32_t code = c;
            size_t size = 1;
            if (c >= 0xC0) {
                size = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : 2;
                code = c & (0x7F >> size);
                for (size_t k = 1; k < size && i + k < s.size(); ++k)
                    code = (code << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
            }
            if (code > 0xFF)
                return Fail(n, "'" + std::string(inField) +
                                   "' holds a character beyond U+00FF (names are 8-bit text)");
            bytes += static_cast<char>(code);
            i += size;
        }
        if (bytes.size() > inMax)
            return Fail(n, "'" + std::string(inField) + "' is " + std::to_string(bytes.size()) +
                               " characters long (at most " + std::to_string(inMax) + ")");
        out = std::move(bytes);
        return true;
    }
    bool Text(const toml::table& t, const char* inField, size_t inMax, std::string& out) {
        const toml::node* n = t.get(inField);
        return !n || Text(*n, inField, inMax, out);
    }

    // Four characters, or the number they make.
    bool Code(const toml::node& n, const char* inField, uint32_t& out) {
        if (n.is_integer()) {
            int64_t v = 0;
            if (!Int(n, inField, 0, UINT32_MAX, v)) return false;
            out = static_cast<uint32_t>(v);
            return true;
        }
        std::string s;
        if (!n.is_string())
            return Fail(n, "'" + std::string(inField) + "' must be four characters or a number");
        if (!Text(n, inField, 4, s)) return false;
        if (s.size() != 4) return Fail(n, "'" + std::string(inField) + "' must be four characters");
        out = 0;
        for (char c : s) out = (out << 8) | static_cast<uint8_t>(c);
        return true;
    }

    // true, false, or a number (a latched setting or a flag as stored).
    template <typename T>
    bool Flag(const toml::table& t, const char* inField, T& out) {
        const toml::node* n = t.get(inField);
        if (!n) return true;
        if (const auto* b = n->as_boolean()) {
            out = b->get() ? 1 : 0;
            return true;
        }
        int64_t v = 0;
        if (!n->is_integer())
            return Fail(*n, "'" + std::string(inField) + "' must be true, false or a number");
        if (!Int(*n, inField, 0, std::numeric_limits<T>::max(), v)) return false;
        out = static_cast<T>(v);
        return true;
    }

    // "none", "B", "C" or the stored number.
    bool Mode(const toml::node& n, uint32_t& out) {
        if (n.is_integer()) {
            int64_t v = 0;
            if (!Int(n, "mode", 0, UINT32_MAX, v)) return false;
            out = static_cast<uint32_t>(v);
            return true;
        }
        const auto* s = n.as_string();
        const std::string text = s ? s->get() : "";
        if (text == "none")
            out = 0;
        else if (text == "B" || text == "b")
            out = kModeB;
        else if (text == "C" || text == "c")
            out = kModeC;
        else
            return Fail(n, "'mode' must be \"none\", \"B\", \"C\" or a number");
        return true;
    }

    bool Modifiers(const toml::table& t, uint16_t& out) {
        const toml::node* n = t.get("modifiers");
        if (!n) return true;
        const auto* list = n->as_array();
        if (!list) return Fail(*n, "'modifiers' must be a list such as [\"command\", \"shift\"]");
        for (const toml::node& m : *list) {
            if (m.is_integer()) {
                int64_t v = 0;
                if (!Int(m, "modifiers", 0, 0xFFFF, v)) return false;
                out = static_cast<uint16_t>(out | v);
                continue;
            }
            const auto* s = m.as_string();
            bool known = false;
            for (const SModifier& mod : kModifiers) {
                if (s && s->get() == mod.name) {
                    out = static_cast<uint16_t>(out | mod.bit);
                    known = true;
                }
            }
            if (!known)
                return Fail(m,
                            "unknown modifier (expected command, shift, caps lock, option or "
                            "control)");
        }
        return true;
    }

    // Hex bytes, the digit n standing for inChannel (a strip's channel; -1 on
    // a button), '|' before the bytes that are stored but not sent.
    bool Template(const toml::table& t, int inChannel, size_t inSize, SVXActionModel& a) {
        const toml::node* n = t.get("template");
        if (!n) return Fail(t, "the action needs a 'template' (hex bytes such as \"B0 07 FD\")");
        const auto* s = n->as_string();
        if (!s) return Fail(*n, "'template' must be a string of hex bytes");
        const std::string& text = s->get();
        size_t count = 0;
        std::optional<size_t> used;
        for (size_t i = 0; i < text.size();) {
            if (text[i] == ' ' || text[i] == '\t') {
                ++i;
                continue;
            }
            if (text[i] == '|') {
                if (used) return Fail(*n, "'template' has a second '|'");
                used = count;
                ++i;
                continue;
            }
            size_t end = i;
            while (end < text.size() && text[end] != ' ' && text[end] != '\t' && text[end] != '|')
                ++end;
            const std::string byte = text.substr(i, end - i);
            if (byte.size() != 2)
                return Fail(*n, "'template' holds '" + byte + "', not two hex digits");
            if (count == inSize)
                return Fail(*n, "'template' holds more than " + std::to_string(inSize) + " bytes");
            uint8_t value = 0;
            for (char digit : byte) {
                int v = 0;
                if (digit >= '0' && digit <= '9')
                    v = digit - '0';
                else if (digit >= 'a' && digit <= 'f')
                    v = digit - 'a' + 10;
                else if (digit >= 'A' && digit <= 'F')
                    v = digit - 'A' + 10;
                else if ((digit == 'n' || digit == 'N') && inChannel >= 0)
                    v = inChannel;
                else if (digit == 'n' || digit == 'N')
                    return Fail(*n, "'template' uses n, the strip's channel, on a button");
                else
                    return Fail(*n, "'template' holds '" + byte + "', not two hex digits");
                value = static_cast<uint8_t>(value << 4 | v);
            }
            a.message[count++] = value;
            i = end;
        }
        a.length = static_cast<uint16_t>(used.value_or(count));
        if (const toml::node* length = t.get("length")) {
            int64_t v = 0;
            if (!Int(*length, "length", static_cast<int64_t>(inSize) + 1, 0xFFFF, v)) return false;
            if (used) return Fail(*length, "'length' and a '|' in the template exclude each other");
            a.length = static_cast<uint16_t>(v);
        }
        return true;
    }

    // One action: a button's (inButton, with its control number) or a
    // channel control's, whose fields sit in the control's own table.
    bool Action(const toml::table& t, bool inButton, uint32_t inControl, int inChannel,
                uint32_t inKeysetMode, SVXActionModel& a) {
        const toml::node* typeNode = t.get("type");
        const auto* typeText = typeNode ? typeNode->as_string() : nullptr;
        if (!typeText)
            return Fail(typeNode ? *typeNode : static_cast<const toml::node&>(t),
                        inButton ? "'type' must be key, mouse, delay, notify, shuttle, app or midi"
                                 : "'type' must be notify, app, midi or emulation");
        const std::string type = typeText->get();
        if (inButton) a.control = inControl;
        bool builtin = false;
        if (const toml::node* b = t.get("builtin")) {
            if (!b->is_boolean()) return Fail(*b, "'builtin' must be true or false");
            builtin = b->as_boolean()->get();
        }
        if (!Text(t, "name", kVXStr63Max, a.name) || !UInt(t, "speed", a.speed)) return false;
        if (const toml::node* id = t.get("id"); id && !Code(*id, "id", a.legacyID)) return false;
        if (inButton && !UInt(t, "control", a.control)) return false;
        // The control's own fields sit beside a channel action's.
        const std::vector<const char*> common =
            inButton ? std::vector<const char*>{"type", "name", "id", "builtin", "speed", "control"}
                     : std::vector<const char*>{"type",  "name",         "id",     "builtin",
                                                "speed", "control_name", "latched"};
        auto only = [&](std::initializer_list<const char*> inOwn, const char* inWhere) {
            std::vector<const char*> keys(common);
            keys.insert(keys.end(), inOwn);
            return OnlyKeys(t, keys, inWhere);
        };

        if (inButton && type == "key") {
            a.type = vx_action_type_key;
            const toml::node* key = t.get("key");
            if (!key) return Fail(t, "a key action needs a 'key' (a name such as \"Space\")");
            if (key->is_integer()) {
                int64_t v = 0;
                if (!Int(*key, "key", 0, 255, v)) return false;
                a.keyCode = static_cast<uint8_t>(v);
            } else if (const auto* name = key->as_string()) {
                const auto code = VXKeyFromName(name->get());
                if (!code)
                    return Fail(*key,
                                "unknown key name '" + name->get() + "' (vxctl keys lists them)");
                a.keyCode = *code;
            } else {
                return Fail(*key, "'key' must be a key name or a virtual key code");
            }
            if (!UInt(t, "char", a.charCode) || !Modifiers(t, a.modifiers)) return false;
            if (!only({"key", "char", "modifiers"}, "a key action")) return false;
        } else if (inButton && type == "mouse") {
            a.type = vx_action_type_mouse;
            for (auto [field, value] : {std::pair{"x", &a.x}, std::pair{"y", &a.y}}) {
                const toml::node* n = t.get(field);
                int64_t v = 0;
                if (!n) return Fail(t, std::string("a mouse action needs '") + field + "'");
                if (!Int(*n, field, INT16_MIN, INT16_MAX, v)) return false;
                *value = static_cast<int16_t>(v);
            }
            if (!Modifiers(t, a.modifiers) || !UInt(t, "capture_now", a.captureNow) ||
                !UInt(t, "partial_title", a.partialTitle) || !UInt(t, "mouse_op", a.mouseOp) ||
                !UInt(t, "capture_op", a.captureOp) ||
                !Text(t, "window_title", kVXStr63Max, a.windowTitle))
                return false;
            if (!only({"x", "y", "modifiers", "capture_now", "partial_title", "mouse_op",
                       "capture_op", "window_title"},
                      "a mouse action"))
                return false;
        } else if (inButton && type == "delay") {
            a.type = vx_action_type_delay;
            const toml::node* seconds = t.get("seconds");
            const toml::node* ticks = t.get("ticks");
            if (seconds && ticks)
                return Fail(*ticks, "a delay takes 'seconds' or 'ticks', not both");
            if (seconds) {
                const std::optional<double> v = seconds->value<double>();
                if (!v || !(*v >= 0 && *v <= 3600))
                    return Fail(*seconds, "'seconds' must be a number from 0 to 3600");
                a.ticks = static_cast<int32_t>(std::lround(*v * kTicksPerSecond));
            } else if (ticks) {
                int64_t v = 0;
                if (!Int(*ticks, "ticks", INT32_MIN, INT32_MAX, v)) return false;
                a.ticks = static_cast<int32_t>(v);
            } else {
                return Fail(t, "a delay needs 'seconds'");
            }
            if (!only({"seconds", "ticks"}, "a delay")) return false;
        } else if (type == "notify") {
            a.type = vx_action_type_special;
            a.code = inButton ? kNotifyCode : 0;
            if (!UInt(t, "code", a.code) || !only({"code"}, "a notify action")) return false;
        } else if (inButton && type == "shuttle") {
            a.type = vx_action_type_app_specific;
            const toml::node* d = t.get("direction");
            const auto* s = d ? d->as_string() : nullptr;
            if (s && s->get() == "rewind")
                a.code = kShuttleRewind;
            else if (s && s->get() == "forward")
                a.code = kShuttleForward;
            else
                return Fail(d ? *d : static_cast<const toml::node&>(t),
                            "a shuttle needs 'direction', \"rewind\" or \"forward\"");
            if (!only({"direction"}, "a shuttle")) return false;
        } else if (type == "app") {
            a.type = vx_action_type_app_specific;
            if (!UInt(t, "code", a.code) || !only({"code"}, "an app action")) return false;
        } else if (type == "midi") {
            a.type = vx_action_type_midi;
            a.kind = kMIDIOneWay;
            if (const toml::node* kind = t.get("kind")) {
                const auto* s = kind->as_string();
                if (s && s->get() == "one-way")
                    a.kind = kMIDIOneWay;
                else if (s && s->get() == "two-way")
                    a.kind = kMIDITwoWay;
                else if (kind->is_integer()) {
                    int64_t v = 0;
                    if (!Int(*kind, "kind", 0, UINT32_MAX, v)) return false;
                    a.kind = static_cast<uint32_t>(v);
                } else
                    return Fail(*kind, "'kind' must be \"one-way\", \"two-way\" or a number");
            }
            if (!Template(t, inChannel, 8, a) ||
                !only({"kind", "template", "length"}, "a MIDI action"))
                return false;
        } else if (!inButton && type == "emulation") {
            a.type = vx_action_type_emulation;
            a.mode = inKeysetMode;
            if (const toml::node* mode = t.get("mode"); mode && !Mode(*mode, a.mode)) return false;
            if (!Template(t, inChannel, 16, a) || !Flag(t, "host_midi", a.acceptsMIDI))
                return false;
            if (const toml::node* unused = t.get("unused")) {
                const auto* list = unused->as_array();
                if (!list || list->size() != 3)
                    return Fail(*unused, "'unused' must be a list of three numbers");
                for (size_t i = 0; i < 3; ++i) {
                    int64_t v = 0;
                    if (!Int(*list->get(i), "unused", 0, UINT32_MAX, v)) return false;
                    a.unused[i] = static_cast<uint32_t>(v);
                }
            }
            if (!only({"mode", "template", "length", "host_midi", "unused"}, "an emulation action"))
                return false;
        } else {
            return Fail(*typeNode, "unknown action type '" + type + "' (expected " +
                                       (inButton ? "key, mouse, delay, notify, shuttle, app or midi"
                                                 : "notify, app, midi or emulation") +
                                       ")");
        }
        if (builtin) a.type |= kVXBuiltInActionFlag;
        return true;
    }

    bool Button(const toml::node& n, uint32_t inControl, uint32_t inKeysetMode, SVXButtonModel& b) {
        const auto* t = n.as_table();
        if (!t) return Fail(n, std::string("'") + kButtonKeys[inControl] + "' must be a table");
        if (!OnlyKeys(*t, {"control_name", "assigned", "latched", "actions"}, "a button"))
            return false;
        if (!Text(*t, "control_name", kVXStr31Max, b.controlName) ||
            !Text(*t, "assigned", kVXStr31Max, b.assignedName) || !Flag(*t, "latched", b.latched))
            return false;
        const toml::node* actions = t->get("actions");
        if (!actions) return true;
        const auto* list = actions->as_array();
        if (!list) return Fail(*actions, "'actions' must be a list of actions");
        for (const toml::node& an : *list) {
            const auto* at = an.as_table();
            if (!at)
                return Fail(
                    an, "each action must be a table such as { type = \"key\", key = \"Space\" }");
            SVXActionModel a;
            if (!Action(*at, true, inControl, -1, inKeysetMode, a)) return false;
            b.actions.push_back(std::move(a));
        }
        return true;
    }

    bool ChannelControl(const toml::table& t, uint32_t inType, int inChannel, uint32_t inKeysetMode,
                        SVXChannelControlModel& c) {
        c = VXDefaultChannelControl(inType);
        if (!Text(t, "control_name", kVXStr31Max, c.name) || !Flag(t, "latched", c.latched))
            return false;
        if (!t.contains("type")) {
            return OnlyKeys(t, {"control_name", "latched", "type"},
                            "a channel control without an action");
        }
        c.action.emplace();
        return Action(t, false, inType, inChannel, inKeysetMode, *c.action);
    }

    // One [[keyset.strip]] entry into the strips it names.
    bool Strip(const toml::node& n, SVXKeysetModel& k,
               std::map<std::pair<size_t, size_t>, toml::source_position>& ioSet) {
        const auto* t = n.as_table();
        if (!t) return Fail(n, "each strip entry must be a table");
        if (!OnlyKeys(*t, {"strip", "strips", "fader", "mute", "solo", "aux", "select", "touch"},
                      "a strip entry"))
            return false;
        std::vector<size_t> strips;
        const toml::node* one = t->get("strip");
        const toml::node* many = t->get("strips");
        if (one && many) return Fail(*many, "a strip entry takes 'strip' or 'strips', not both");
        if (one) {
            int64_t v = 0;
            if (!Int(*one, "strip", 1, kVXModelStrips, v)) return false;
            strips.push_back(static_cast<size_t>(v - 1));
        } else if (many && many->is_string() && many->as_string()->get() == "all") {
            for (size_t s = 0; s < kVXModelStrips; ++s) strips.push_back(s);
        } else if (many && many->is_array()) {
            for (const toml::node& e : *many->as_array()) {
                int64_t v = 0;
                if (!Int(e, "strips", 1, kVXModelStrips, v)) return false;
                strips.push_back(static_cast<size_t>(v - 1));
            }
        } else {
            return Fail(
                many ? *many : n,
                "a strip entry needs 'strip = N' or 'strips = [N, ...]' or 'strips = \"all\"' "
                "(strips 1 to 16)");
        }
        for (size_t c = 0; c < kVXModelStripControls; ++c) {
            const toml::node* cn = t->get(kControlKeys[c]);
            if (!cn) continue;
            const auto* ct = cn->as_table();
            if (!ct)
                return Fail(*cn, std::string("'") + kControlKeys[c] +
                                     "' must be a table such as { type = \"notify\" }");
            for (size_t s : strips) {
                const auto [at, fresh] = ioSet.emplace(std::pair{s, c}, cn->source().begin);
                if (!fresh)
                    return Fail(*cn, "strip " + std::to_string(s + 1) + "'s " + kControlKeys[c] +
                                         " is set twice (first on line " +
                                         std::to_string(at->second.line) + ")");
                if (!ChannelControl(*ct, kFirstChannelControl + static_cast<uint32_t>(c),
                                    static_cast<int>(s), k.mode, k.strips[s][c]))
                    return false;
            }
        }
        return true;
    }

    bool Keyset(const toml::node& n, SVXKeysetModel& k) {
        const auto* t = n.as_table();
        if (!t) return Fail(n, "each keyset must be a table ([[keyset]])");
        if (!OnlyKeys(*t, {"name", "signature", "mode", "buttons", "strip"}, "a keyset"))
            return false;
        const toml::node* name = t->get("name");
        const toml::node* signature = t->get("signature");
        if (!name) return Fail(n, "the keyset needs a 'name'");
        if (!signature) return Fail(n, "the keyset needs a 'signature' (four characters)");
        k = VXDefaultKeyset("", 0);
        if (!Text(*name, "name", kVXStr31Max, k.name) ||
            !Code(*signature, "signature", k.signature))
            return false;
        if (const toml::node* mode = t->get("mode"); mode && !Mode(*mode, k.mode)) return false;
        if (const toml::node* buttons = t->get("buttons")) {
            const auto* bt = buttons->as_table();
            if (!bt) return Fail(*buttons, "'buttons' must be a table ([keyset.buttons.play])");
            if (!OnlyKeys(*bt, {"rewind", "fast_forward", "stop", "play", "record"},
                          "the transport buttons"))
                return false;
            for (uint32_t b = 0; b < kVXModelButtons; ++b) {
                if (const toml::node* bn = bt->get(kButtonKeys[b]);
                    bn && !Button(*bn, b, k.mode, k.buttons[b]))
                    return false;
            }
        }
        if (const toml::node* strips = t->get("strip")) {
            const auto* list = strips->as_array();
            if (!list) return Fail(*strips, "'strip' must be a list of entries ([[keyset.strip]])");
            std::map<std::pair<size_t, size_t>, toml::source_position> set;
            for (const toml::node& s : *list)
                if (!Strip(s, k, set)) return false;
        }
        return true;
    }

    bool File(const toml::table& root, SVXKeysetFileModel& out) {
        if (!OnlyKeys(root, {"version", "keyset"}, "the file")) return false;
        if (const toml::node* v = root.get("version")) {
            int64_t version = 0;
            if (!Int(*v, "version", kVXFirstKeysetVersion, UINT32_MAX, version)) return false;
            out.version = static_cast<uint32_t>(version);
        }
        const toml::node* keysets = root.get("keyset");
        const auto* list = keysets ? keysets->as_array() : nullptr;
        if (!list || list->empty())
            return Fail(keysets ? keysets->source().begin : toml::source_position{1, 1},
                        "the file holds no keyset (each begins with [[keyset]])");
        for (const toml::node& n : *list) {
            SVXKeysetModel k;
            if (!Keyset(n, k)) return false;
            out.keysets.push_back(std::move(k));
        }
        return true;
    }

    SError mError;
};

// toml++ is given ASCII only: its test for white space beyond ASCII is not
// safe on every character (and keyset text needs none). The first character
// beyond ASCII, or the first byte that is not UTF-8, is refused here.
bool AsciiOnly(std::string_view inText, SError& outError) {
    uint32_t line = 1, column = 1;
    for (size_t i = 0; i < inText.size(); ++i) {
        const auto c = static_cast<unsigned char>(inText[i]);
        if (c >= 0x80) {
            outError = {line, column,
                        "a character beyond ASCII: write it in a string as a \\u escape "
                        "(\\u00E9 for e acute), or leave it out of comments"};
            return false;
        }
        if (c == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return true;
}

}  // namespace

bool VXKeysetFileFromText(std::string_view inText, std::string_view inFileName,
                          SVXKeysetFileModel& outFile, std::string& outError) {
    auto failed = [&](const SError& e) {
        outError = std::string(inFileName) + ":" + std::to_string(e.line) + ":" +
                   std::to_string(e.column) + ": " + e.what;
        return false;
    };
    if (inText.size() > kMaxTextSize) return failed({1, 1, "more than 1 MiB: not a keyset file"});
    SError error;
    if (!AsciiOnly(inText, error)) return failed(error);
    toml::parse_result parsed = toml::parse(inText, inFileName);
    if (!parsed) {
        const toml::parse_error& e = parsed.error();
        return failed(
            {e.source().begin.line, e.source().begin.column, std::string(e.description())});
    }
    CReader reader;
    SVXKeysetFileModel file;
    if (!reader.File(parsed.table(), file)) return failed(reader.mError);
    outFile = std::move(file);
    return true;
}
