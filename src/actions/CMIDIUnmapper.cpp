#include "actions/CMIDIUnmapper.h"

#include <algorithm>
#include <cstring>

#include "actions/CVX_MIDIResponderMixIn.h"
#include "model/CVX_Keyset.h"

namespace {
// memcpy wants valid pointers even for no bytes; an empty packet may come with none.
void CopyBytes(uint8_t* outTo, const uint8_t* inFrom, size_t inCount) {
    if (inCount > 0) std::memcpy(outTo, inFrom, inCount);
}
}  // namespace

CMIDIUnmapper::CMIDIUnmapper() {
    mCustomMIDIActions.reserve(kReservedResponders);
}

CMIDIUnmapper::~CMIDIUnmapper() {
    for (CVX_MIDIResponderMixIn* r : mCustomMIDIActions) r->mUnmapper = nullptr;
    for (CVX_MIDIResponderMixIn* r : mCustomChannelMIDIActions) r->mUnmapper = nullptr;
}

CMIDIUnmapper* CMIDIUnmapper::UnmapperUnderConstruction() {
    CVX_Keyset* keyset = CVX_Keyset::GetKeysetUnderConstruction();
    return keyset ? keyset->GetMIDIUnmapper() : nullptr;
}

void CMIDIUnmapper::AddCustomMIDIAction(CVX_MIDIResponderMixIn* inResponder) {
    if (CMIDIUnmapper* unmapper = UnmapperUnderConstruction()) {
        unmapper->Enlist(unmapper->mCustomMIDIActions, inResponder);
    }
}

void CMIDIUnmapper::RemoveCustomMIDIAction(CVX_MIDIResponderMixIn* inResponder) {
    if (CMIDIUnmapper* unmapper = UnmapperUnderConstruction()) {
        unmapper->Delist(unmapper->mCustomMIDIActions, inResponder);
    }
}

void CMIDIUnmapper::AddCustomChannelMIDIAction(CVX_MIDIResponderMixIn* inResponder) {
    if (CMIDIUnmapper* unmapper = UnmapperUnderConstruction()) {
        unmapper->Enlist(unmapper->mCustomChannelMIDIActions, inResponder);
    }
}

void CMIDIUnmapper::RemoveCustomChannelMIDIAction(CVX_MIDIResponderMixIn* inResponder) {
    if (CMIDIUnmapper* unmapper = UnmapperUnderConstruction()) {
        unmapper->Delist(unmapper->mCustomChannelMIDIActions, inResponder);
    }
}

void CMIDIUnmapper::Enlist(ResponderList& ioList, CVX_MIDIResponderMixIn* inResponder) {
    if (!inResponder) return;
    // A responder remembers one unmapper, the one it leaves when it goes.
    // Every responder registers while it is built, with one keyset under
    // construction; should one ever register with a second unmapper, it moves
    // there whole rather than stay behind, unremembered, in the first.
    if (inResponder->mUnmapper && inResponder->mUnmapper != this) {
        inResponder->mUnmapper->Forget(inResponder);
    }
    ioList.push_back(inResponder);
    inResponder->mUnmapper = this;
}

void CMIDIUnmapper::Delist(ResponderList& ioList, CVX_MIDIResponderMixIn* inResponder) {
    auto entry = std::find(ioList.begin(), ioList.end(), inResponder);
    if (entry == ioList.end()) return;
    ioList.erase(entry);
    const auto listed = [inResponder](const ResponderList& inList) {
        return std::find(inList.begin(), inList.end(), inResponder) != inList.end();
    };
    if (!listed(mCustomMIDIActions) && !listed(mCustomChannelMIDIActions)) {
        inResponder->mUnmapper = nullptr;
    }
}

void CMIDIUnmapper::Forget(CVX_MIDIResponderMixIn* inResponder) {
    std::erase(mCustomMIDIActions, inResponder);
    std::erase(mCustomChannelMIDIActions, inResponder);
    if (inResponder && inResponder->mUnmapper == this) inResponder->mUnmapper = nullptr;
}

size_t CMIDIUnmapper::GetMessageLength(const uint8_t* inBytes, size_t* ioRemaining) {
    if (*ioRemaining == 0) return 0;
    size_t length = 1;
    while (length < *ioRemaining) {
        const uint8_t b = inBytes[length];
        if ((b & 0x80) && b != 0xF7) break;
        ++length;
    }
    *ioRemaining -= length;
    return length;
}

size_t CMIDIUnmapper::AskList(const ResponderList& inList, const uint8_t* inMessage,
                              size_t inLength, uint8_t* outBytes, size_t inRoom, size_t inTotal) {
    uint8_t scratch[kVXMaxResponderAnswer];
    for (CVX_MIDIResponderMixIn* r : inList) {
        // A responder writes up to kVXMaxResponderAnswer bytes wherever it is
        // pointed: straight into the output while that much room is left,
        // else into the scratch buffer, of which only what fits is kept.
        const size_t left = inTotal < inRoom ? inRoom - inTotal : 0;
        uint8_t* at = outBytes + (inRoom - left);
        const bool direct = left >= kVXMaxResponderAnswer;
        size_t answer = r->UnmapMessage(inMessage, direct ? at : scratch, inLength);
        answer = std::min(answer, kVXMaxResponderAnswer);
        if (!direct) CopyBytes(at, scratch, std::min(answer, left));
        inTotal += answer;
    }
    return inTotal;
}

bool CMIDIUnmapper::UnmapOneMessage(const uint8_t* inMessage, uint8_t* outBytes, size_t* ioLength,
                                    size_t inRoom) {
    size_t total = AskList(mCustomMIDIActions, inMessage, *ioLength, outBytes, inRoom, 0);
    total = AskList(mCustomChannelMIDIActions, inMessage, *ioLength, outBytes, inRoom, total);
    *ioLength = total;
    return total > 0;
}

bool CMIDIUnmapper::UnmapHostMIDI(const uint8_t* inBytes, uint8_t* outBytes, size_t* ioLength,
                                  size_t inRoom) {
    const size_t n = *ioLength;
    size_t outPos = 0;
    if (mCustomMIDIActions.empty() && mCustomChannelMIDIActions.empty()) {
        CopyBytes(outBytes, inBytes, std::min(n, inRoom));
        outPos = n;
    } else {
        size_t remaining = n;
        const uint8_t* message = inBytes;
        for (size_t length = GetMessageLength(message, &remaining); length != 0;
             message += length, length = GetMessageLength(message, &remaining)) {
            // Past the end of the room only the count goes on.
            const size_t left = outPos < inRoom ? inRoom - outPos : 0;
            uint8_t* at = outBytes + (inRoom - left);
            size_t produced = length;
            if (UnmapOneMessage(message, at, &produced, left)) {
                outPos += produced;
            } else {
                CopyBytes(at, message, std::min(length, left));
                outPos += length;
            }
        }
    }
    *ioLength = outPos;
    return outPos > 0;
}
