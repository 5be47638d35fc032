#include "actions/CVX_MIDIResponderMixIn.h"

#include <cerrno>
#include <cstring>

#include "actions/CMIDIUnmapper.h"
#include "platform/CVXHostMIDIOut.h"
#include "platform/SVXPlatform.h"
#include "platform/VXDiagnostics.h"

CCircularBuffer CVX_MIDIResponderMixIn::sDeferedMIDIBuffer;

CVX_MIDIResponderMixIn::CVX_MIDIResponderMixIn(bool inAcceptsMIDI) : mAcceptsMIDI(inAcceptsMIDI) {
    if (mAcceptsMIDI) RegisterWithUnmapper();
}

CVX_MIDIResponderMixIn::~CVX_MIDIResponderMixIn() {
    RemoveFromUnmapper();
}

void CVX_MIDIResponderMixIn::Name(char* outName) {
    std::strncpy(outName, "unknown CVX_MIDIResponderMixIn", kVXResponderNameSize);
}

void CVX_MIDIResponderMixIn::GetNativeMessage(uint8_t, uint8_t*, size_t* outLength) {
    *outLength = 0;
}

void CVX_MIDIResponderMixIn::RegisterWithUnmapper() {
    CMIDIUnmapper::AddCustomMIDIAction(this);
}

void CVX_MIDIResponderMixIn::RemoveFromUnmapper() {
    // Removal by the keyset under construction would find the responder only
    // while its own keyset is being rebuilt, and only one of its entries: a
    // responder destroyed at any other time (or registered twice) would stay
    // listed and be asked about host MIDI after its end. It leaves the
    // unmapper it registered with instead, every entry of it, in both lists.
    if (mUnmapper) mUnmapper->Forget(this);
}

int CVX_MIDIResponderMixIn::MIDIToHost(const uint8_t* inBytes, size_t inLength) {
    // More bytes than the packet list takes leave the list without a packet:
    // nothing reaches the host. An empty message carries nothing either.
    if (inLength > kMaxBytesToHost) return -EMSGSIZE;
    CVXHostMIDIOut* host = SVXPlatform::Get().hostMIDI;
    if (!host) return -ENODEV;
    if (inLength > 0) host->Send(inBytes, inLength);
    return 0;
}

void CVX_MIDIResponderMixIn::DeferMessageToHost(const uint8_t* inBytes, size_t inLength) {
    sDeferedMIDIBuffer.AddBytes(inBytes, inLength);
}

void CVX_MIDIResponderMixIn::HandleDeferedMIDI() {
    constexpr size_t kUnit = 6;
    CCircularBuffer& ring = sDeferedMIDIBuffer;
    if (ring.IsEmpty() || ring.BytesRemaining() < kUnit) return;
    const uint32_t in = ring.GetBufferIn();
    const uint32_t out = ring.GetBufferOut();
    uint8_t unit[kUnit];
    const size_t taken = ring.GetBytes(unit, kUnit);
    if (taken < kUnit) {
        // The ring was busy: nothing is consumed, the next tick tries again.
        VXDiagnostic(" act len: %ld", static_cast<long>(taken));
        ring.Reset(in, out);
        return;
    }
    if (unit[0] == 0xB0 && unit[3] == 0xB0) MIDIToHost(unit, kUnit);
}
