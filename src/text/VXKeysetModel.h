// Keysets as plain data, for the tools that convert them between the binary
// keyset stream and text. Unlike the driver's objects, which keep only what
// they act on, the model keeps every field a record stores (legacy IDs,
// speeds, the built-in flag, latched values other than 1, template bytes past
// the used length, the emulation's unused longs), so that a stream read into
// it and written out again is the same, byte for byte.
//
// Strings hold the stream's bytes as they are (8-bit characters).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

constexpr uint32_t kVXBuiltInActionFlag = 0x8000;
constexpr uint32_t kVXFirstKeysetVersion = 0x40000;
constexpr size_t kVXStr31Max = 31;
constexpr size_t kVXStr63Max = 63;

// One action record, button or channel; which fields mean something follows
// from the type (its base type, without the built-in flag).
struct SVXActionModel {
    uint32_t type = 0;  // as stored: the built-in flag included
    uint32_t legacyID = 0;
    uint32_t control = 0;  // button actions only: the record's own control field
    uint16_t speed = 0;
    std::string name;  // at most 63 characters

    // key (0)
    uint16_t modifiers = 0;  // mouse too
    uint8_t keyCode = 0;
    uint8_t charCode = 0;
    // mouse (1)
    uint16_t captureNow = 0;
    uint16_t partialTitle = 0;
    uint8_t mouseOp = 0;
    uint8_t captureOp = 0;
    int16_t x = 0;
    int16_t y = 0;
    std::string windowTitle;  // at most 63 characters
    // delay (4)
    int32_t ticks = 0;
    // special (5) and app-specific (6): the stored code
    uint32_t code = 0;
    // MIDI (7) and emulation (8): kind (MIDI), the template and its length
    uint32_t kind = 0;
    uint16_t length = 0;
    std::array<uint8_t, 16> message{};  // MIDI uses the first 8
    // emulation (8)
    uint32_t mode = 0;
    std::array<uint32_t, 3> unused{};  // EmTp, EmCN, EmSF: stored, never read
    uint16_t acceptsMIDI = 0;

    uint32_t BaseType() const { return type & ~kVXBuiltInActionFlag; }
    bool operator==(const SVXActionModel&) const = default;
};

// A transport button's record: names, latching and its ordered actions.
struct SVXButtonModel {
    std::string controlName;   // at most 31 characters
    std::string assignedName;  // at most 31 characters
    uint32_t latched = 0;      // non-zero: latched
    std::vector<SVXActionModel> actions;
    bool operator==(const SVXButtonModel&) const = default;
};

// A channel control's record: at most one action.
struct SVXChannelControlModel {
    std::string name;  // at most 31 characters
    uint32_t latched = 0;
    std::optional<SVXActionModel> action;
    bool operator==(const SVXChannelControlModel&) const = default;
};

constexpr size_t kVXModelButtons = 5;
constexpr size_t kVXModelStrips = 16;
constexpr size_t kVXModelStripControls = 6;  // 160 to 165

struct SVXKeysetModel {
    std::string name;  // at most 31 characters
    uint32_t signature = 0;
    uint32_t mode = 0;
    // Button records travel apart from keyset records (one control update
    // each); the keyset stream carries the strips only.
    std::array<SVXButtonModel, kVXModelButtons> buttons;
    // strips[channel][control - 160]
    std::array<std::array<SVXChannelControlModel, kVXModelStripControls>, kVXModelStrips> strips;
    bool operator==(const SVXKeysetModel&) const = default;
};

struct SVXKeysetFileModel {
    uint32_t version = kVXFirstKeysetVersion;
    std::vector<SVXKeysetModel> keysets;
    bool operator==(const SVXKeysetFileModel&) const = default;
};

// The records as a new keyset has them: default names, nothing latched, no
// actions.
SVXButtonModel VXDefaultButton(uint32_t inControl);
SVXChannelControlModel VXDefaultChannelControl(uint32_t inType);
SVXKeysetModel VXDefaultKeyset(std::string inName, uint32_t inSignature);

// Reads a full keyset set strictly: it succeeds exactly when the driver's
// readers take every keyset of the stream without a failure and with every
// string whole. outTrailing counts bytes after the last keyset (the driver
// ignores them). On failure outError says where and what.
bool VXReadKeysetFile(const uint8_t* inBytes, size_t inSize, SVXKeysetFileModel& outFile,
                      size_t& outTrailing, std::string& outError);

// The full set; one keyset record (for the editor's add and replace
// commands); one button control update (keyset index, bank 0, control).
std::vector<uint8_t> VXWriteKeysetFile(const SVXKeysetFileModel& inFile);
std::vector<uint8_t> VXWriteKeysetRecord(const SVXKeysetModel& inKeyset);
std::vector<uint8_t> VXWriteButtonUpdate(uint32_t inKeysetIndex, uint32_t inControl,
                                         const SVXButtonModel& inButton);
