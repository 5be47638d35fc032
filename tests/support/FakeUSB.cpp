#include "support/FakeUSB.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

std::string Format(const char* inFormat, unsigned a, unsigned b = 0, unsigned c = 0,
                   unsigned d = 0) {
    char text[64];
    std::snprintf(text, sizeof text, inFormat, a, b, c, d);
    return text;
}

std::string Hex(const uint8_t* inBytes, size_t inLength) {
    std::string text;
    for (size_t i = 0; i < inLength; ++i) text += Format(" %02X", inBytes[i]);
    return text;
}

constexpr int kErrorTimeout = -7;  // libusb's

}  // namespace

CFakeUSBDevice::CFakeUSBDevice(CEventLog& inLog, uint16_t inVendor, uint16_t inProduct,
                               uint16_t inRelease)
    : mInterfaces{{0, {{0x81, 2, 64}, {0x02, 2, 64}}}},
      mLog(inLog),
      mVendor(inVendor),
      mProduct(inProduct),
      mRelease(inRelease) {}

int CFakeUSBDevice::Call(std::string inLine) {
    int status = 0;
    for (SFailure& failure : mFailures) {
        if (failure.times == 0 || inLine.compare(0, failure.prefix.size(), failure.prefix) != 0)
            continue;
        if (failure.times > 0) --failure.times;
        status = failure.status;
        break;
    }
    mLog.Add(std::move(inLine));
    return status;
}

void CFakeUSBDevice::FailOn(std::string inPrefix, int inStatus, int inTimes) {
    mFailures.push_back({std::move(inPrefix), inStatus, inTimes});
}

void CFakeUSBDevice::QueueRead(std::vector<uint8_t> inBytes, int inStatus) {
    mReads.push_back({inStatus, std::move(inBytes)});
}

int CFakeUSBDevice::Open() {
    int status = Call("open");
    if (status == 0) mOpen = true;
    return status;
}

void CFakeUSBDevice::Close() {
    mLog.Add("close");
    mOpen = false;
    mPending = nullptr;  // cancelled without its callback, as the interface says
    mPendingBuffer = nullptr;
}

int CFakeUSBDevice::GetConfigurationValue(uint8_t inIndex, uint8_t& outValue) {
    int status = Call(Format("get-config %u", inIndex));
    if (status == 0) outValue = mConfigurationValue;
    return status;
}

int CFakeUSBDevice::GetActiveConfiguration(int& outValue) {
    int status = Call("get-active");
    if (status == 0) outValue = mActiveConfiguration;
    return status;
}

int CFakeUSBDevice::SetConfiguration(uint8_t inValue) {
    int status = Call(Format("set-config %u", inValue));
    if (status == 0) mActiveConfiguration = inValue;
    return status;
}

int CFakeUSBDevice::GetInterfaces(std::vector<SVXUSBInterface>& outInterfaces) {
    int status = Call("interfaces");
    if (status == 0) outInterfaces = mInterfaces;
    return status;
}

int CFakeUSBDevice::ClaimInterface(uint8_t inNumber) {
    return Call(Format("claim %u", inNumber));
}

int CFakeUSBDevice::ReleaseInterface(uint8_t inNumber) {
    return Call(Format("release %u", inNumber));
}

int CFakeUSBDevice::ControlOut(uint8_t inRequestType, uint8_t inRequest, uint16_t inValue,
                               uint16_t inIndex, unsigned) {
    return Call(Format("control %02X %02X %04X %04X", inRequestType, inRequest, inValue, inIndex));
}

int CFakeUSBDevice::BulkWrite(uint8_t inEndpoint, const uint8_t* inData, size_t inLength,
                              size_t& outTransferred, unsigned) {
    int status = Call(Format("bulk-out %02X", inEndpoint) + Hex(inData, inLength));
    outTransferred = status == 0 ? inLength : 0;
    static constexpr uint8_t kStatusRequest[5] = {0xF0, 0x15, 0x26, 0x01, 0xF7};
    if (status == 0 && !mStatusReply.empty() && inLength == sizeof kStatusRequest &&
        std::memcmp(inData, kStatusRequest, inLength) == 0)
        mReads.push_back({0, mStatusReply});
    return status;
}

int CFakeUSBDevice::BulkRead(uint8_t inEndpoint, uint8_t* outData, size_t inLength,
                             size_t& outTransferred, unsigned inTimeoutMillis) {
    mLastReadTimeout = inTimeoutMillis;
    outTransferred = 0;
    int status = Call(Format("bulk-in %02X %u", inEndpoint, static_cast<unsigned>(inLength)));
    if (status != 0) return status;
    if (mReads.empty()) return kErrorTimeout;
    SRead read = std::move(mReads.front());
    mReads.pop_front();
    outTransferred = std::min(read.bytes.size(), inLength);
    std::copy_n(read.bytes.begin(), outTransferred, outData);
    return read.status;
}

int CFakeUSBDevice::SubmitBulkRead(uint8_t inEndpoint, uint8_t* outBuffer, size_t inLength,
                                   ReadCallback inCallback) {
    int status = Call(Format("submit %02X %u", inEndpoint, static_cast<unsigned>(inLength)));
    if (status != 0) return status;
    mPending = std::move(inCallback);
    mPendingBuffer = outBuffer;
    mPendingLength = inLength;
    return 0;
}

bool CFakeUSBDevice::CompleteRead(EVXTransferStatus inStatus, const std::vector<uint8_t>& inBytes) {
    if (!mPending) return false;
    ReadCallback callback = std::move(mPending);
    mPending = nullptr;
    std::copy_n(inBytes.begin(), std::min(inBytes.size(), mPendingLength), mPendingBuffer);
    mPendingBuffer = nullptr;
    callback(inStatus, inBytes.size());
    return true;
}

int CFakeUSBHost::RegisterHotplug(uint16_t inVendor, uint16_t inProduct, DeviceCallback inArrived,
                                  DeviceCallback inLeft) {
    mLog.Add(Format("hotplug %04x:%04x", inVendor, inProduct));
    if (mRegisterStatus != 0) return mRegisterStatus;
    mRegistrations.push_back({inVendor, inProduct, std::move(inArrived), std::move(inLeft)});
    const SRegistration& registration = mRegistrations.back();
    // Copied: an arrival may plug or unplug devices.
    auto present = mPresent;
    for (const auto& device : present)
        if (device->VendorID() == inVendor && device->ProductID() == inProduct)
            registration.arrived(device);
    return 0;
}

std::shared_ptr<CFakeUSBDevice> CFakeUSBHost::MakeDevice(uint16_t inVendor, uint16_t inProduct,
                                                         uint16_t inRelease) {
    return std::make_shared<CFakeUSBDevice>(mLog, inVendor, inProduct, inRelease);
}

void CFakeUSBHost::Plug(const std::shared_ptr<CFakeUSBDevice>& inDevice) {
    if (std::find(mPresent.begin(), mPresent.end(), inDevice) == mPresent.end())
        mPresent.push_back(inDevice);
    for (const SRegistration& registration : mRegistrations)
        if (inDevice->VendorID() == registration.vendor &&
            inDevice->ProductID() == registration.product)
            registration.arrived(inDevice);
}

void CFakeUSBHost::Unplug(const std::shared_ptr<CFakeUSBDevice>& inDevice) {
    std::erase(mPresent, inDevice);
    for (const SRegistration& registration : mRegistrations)
        if (inDevice->VendorID() == registration.vendor &&
            inDevice->ProductID() == registration.product)
            registration.left(inDevice);
}
