// Drives the keyset stream readers over arbitrary bytes against one live
// keyset set, as the driver sees them: the preferences file at start and the
// editor's commands afterwards, each changing the set the next one meets.
//
// Input layout: byte 0 picks the entry point (value % 5: full set, added
// keyset, replaced keyset, button control, channel control), how much valid
// framing goes before the fuzz bytes ((value / 5) % 3: none, the entry's own
// header, or that header and the record's own start up to its action count),
// and the count that framing declares (value / 15), so that the fuzzer spends
// its bytes on the deep records rather than on re-discovering tags. Byte 1
// picks the keyset index, control, channel and mode the headers name. The
// rest is the stream. After every input the whole set is walked, and any
// broken invariant traps.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "model/CVXKeysetStreamWriter.h"
#include "model/CVX_KeysetData.h"
#include "model/UStreamReader.h"
#include "model/UVX_ControlClass.h"
#include "platform/CVXVirtualLoop.h"
#include "platform/SVXPlatform.h"

namespace {

using Entry = bool (CVX_KeysetData::*)(UStreamReader*);
constexpr Entry kEntries[] = {
    &CVX_KeysetData::UpdateFromStream, &CVX_KeysetData::NewKeysetFromStream,
    &CVX_KeysetData::UpdateKeysetFromStream, &CVX_KeysetData::UpdateControlFromStream,
    &CVX_KeysetData::UpdateChannelControlFromStream};

void Require(bool inCondition) {
    if (!inCondition) __builtin_trap();
}

// One set for the whole run, on a virtual loop.
CVX_KeysetData& TheSet() {
    // Function statics, so that the leak checker still reaches them at exit.
    static CVXVirtualLoop sLoop;
    static CVXPlatformScope sScope(SVXPlatform{.loop = &sLoop});
    static CVX_KeysetData sData;
    return sData;
}

// The valid framing for an entry point; the fuzz bytes follow it. The keyset
// index (inParam & 7) sometimes lies past the end of the set.
void Frame(CVXKeysetStreamWriter& ioW, uint32_t inEntry, uint32_t inLevel, uint32_t inCount,
           uint8_t inParam) {
    if (inLevel == 0) return;
    if (inEntry == 0) ioW.FullSetHeader(1 + (inParam & 3));
    if (inEntry == 2) ioW.PutLong(inParam & 7);
    // A keyset record starts the added keyset's stream, and at the deeper
    // level also follows the full set's and the replaced keyset's header.
    if (inEntry <= 2 && (inEntry == 1 || inLevel == 2))
        ioW.KeysetHeader("Fuzz", VXTag("FUZZ"), inParam >> 6);
    if (inEntry == 3) {
        ioW.ControlUpdateHeader(inParam & 7, 0, (inParam >> 3) % 6);  // 5 names no record
        if (inLevel == 2) ioW.ButtonControl("Name", "_", (inParam >> 7) != 0, inCount);
    }
    if (inEntry == 4) {
        const uint32_t channel = (inParam >> 3) & 15;
        const uint32_t type = kFirstChannelControl + (inParam >> 7) * 5;
        ioW.ChannelControlUpdateHeader(inParam & 7, channel, type);
        if (inLevel == 2) ioW.ChannelControl("Chan", type, channel, false, inCount % 3);
    }
}

// Every keyset, record and action is reachable, sits where it belongs and
// holds names no longer than the stream's string fields allow.
void Walk(const CVX_KeysetData& inData) {
    const uint32_t count = inData.GetNumKeysets();
    CVX_Keyset* underConstruction = CVX_Keyset::GetKeysetUnderConstruction();
    bool underConstructionFound = underConstruction == nullptr;
    for (uint32_t k = 0; k < count; ++k) {
        CVX_Keyset* keyset = inData.GetKeysetAt(k);
        Require(keyset != nullptr && keyset->GetName().size() <= 31);
        underConstructionFound |= keyset == underConstruction;
        for (uint32_t n = 0; n < kNumBankControls; ++n) {
            CVX_ControlData* control = keyset->GetControlAt(n, 0);
            Require(control != nullptr && control->GetControlNum() == n);
            Require(control->GetControlName().size() <= 31 &&
                    control->GetAssignedName().size() <= 31 && control->GetEditorAction());
            const uint32_t actions = control->GetActionSequence()->GetCount();
            for (uint32_t i = 0; i < actions; ++i) {
                Require(control->GetActionAt(i) && control->GetActionAt(i)->GetName().size() <= 63);
            }
            Require(control->GetActionAt(actions) == nullptr);
        }
        for (uint32_t ch = 0; ch < kNumChannelStrips; ++ch) {
            for (uint32_t n = kFirstChannelControl; n < kFirstChannelControl + kNumChannelControls;
                 ++n) {
                CVX_ChannelControlData* control = keyset->GetChannelControlAt(n, ch);
                Require(control != nullptr && control->GetEditorAction() != nullptr);
                Require(control->GetControlType() == n && control->GetChannel() == ch);
                Require(control->GetControlName().size() <= 31);
                Require(control->GetActionSequence()->GetCount() <= 1);
                CVX_Channel_Action* action = control->GetActionSequence()->GetActionAt(0);
                Require(!action ||
                        (action->GetName().size() <= 63 && action->GetControlNum() == n));
            }
        }
    }
    // Never left pointing at a keyset that is gone.
    Require(inData.GetKeysetAt(count) == nullptr && underConstructionFound);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CVX_KeysetData& set = TheSet();
    // Enough keysets that the single updates find their target, few enough
    // that added keysets do not pile up.
    while (set.GetNumKeysets() < 3) set.AddKeyset(std::make_unique<CVX_Keyset>("Seed", 1));
    while (set.GetNumKeysets() > 8) set.DeleteKeysetAt(set.GetNumKeysets() - 1);
    if (size < 2) return 0;

    const uint32_t entry = data[0] % 5;
    CVXKeysetStreamWriter writer;
    Frame(writer, entry, (data[0] / 5) % 3, data[0] / 15, data[1]);
    writer.PutBytes(data + 2, size - 2);
    // The stream at the end of an exact-size heap block: a read past its end
    // is an overrun that ASan reports (a vector's spare capacity would hide it).
    const size_t length = writer.Bytes().size();
    auto bytes = std::make_unique<uint8_t[]>(length);
    if (length > 0) std::memcpy(bytes.get(), writer.Bytes().data(), length);
    UStreamReader reader(bytes.get(), length);

    (set.*kEntries[entry])(&reader);
    Require(reader.GetPos() <= reader.GetSize());
    Walk(set);
    return 0;
}
