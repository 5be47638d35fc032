// A scripted USB host and devices for the device link's tests. Every call is
// logged as one line in a log shared by the host and its devices ("open",
// "control 40 03 C04E 0000", "bulk-out 02 F0 15 26 01 F7", "bulk-in 81 4096",
// "submit 81 4096", "claim 0", "release 0", "close", ...). A test fails calls by
// the start of their line, queues what bulk-in reads return, and completes the
// outstanding asynchronous read by hand. No gtest here: the fuzz targets use it.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "platform/CVXUSB.h"
#include "support/EventLog.h"

class CFakeUSBDevice : public CVXUSBDevice {
  public:
    struct SRead {
        int status = 0;
        std::vector<uint8_t> bytes;
    };

    CFakeUSBDevice(CEventLog& inLog, uint16_t inVendor, uint16_t inProduct, uint16_t inRelease);

    uint16_t VendorID() const override { return mVendor; }
    uint16_t ProductID() const override { return mProduct; }
    uint16_t ReleaseNumber() const override { return mRelease; }
    uint8_t NumberOfConfigurations() const override { return mConfigurations; }

    int Open() override;
    void Close() override;
    int GetConfigurationValue(uint8_t inIndex, uint8_t& outValue) override;
    int GetActiveConfiguration(int& outValue) override;
    int SetConfiguration(uint8_t inValue) override;
    int GetInterfaces(std::vector<SVXUSBInterface>& outInterfaces) override;
    int ClaimInterface(uint8_t inNumber) override;
    int ReleaseInterface(uint8_t inNumber) override;
    int ControlOut(uint8_t inRequestType, uint8_t inRequest, uint16_t inValue, uint16_t inIndex,
                   unsigned inTimeoutMillis) override;
    int BulkWrite(uint8_t inEndpoint, const uint8_t* inData, size_t inLength,
                  size_t& outTransferred, unsigned inTimeoutMillis) override;
    int BulkRead(uint8_t inEndpoint, uint8_t* outData, size_t inLength, size_t& outTransferred,
                 unsigned inTimeoutMillis) override;
    int SubmitBulkRead(uint8_t inEndpoint, uint8_t* outBuffer, size_t inLength,
                       ReadCallback inCallback) override;

    // Every call whose log line starts with inPrefix answers inStatus, the
    // next inTimes such calls (or all, with -1).
    void FailOn(std::string inPrefix, int inStatus, int inTimes = -1);
    // Queues what the next blocking bulk-in reads return, in order. With the
    // queue empty a read times out with nothing (a silent device).
    void QueueRead(std::vector<uint8_t> inBytes, int inStatus = 0);
    // A surface: its status reply follows each status request written.
    void AnswerStatus(std::vector<uint8_t> inReply) { mStatusReply = std::move(inReply); }

    bool ReadPending() const { return static_cast<bool>(mPending); }
    // Completes the outstanding read: copies what fits of inBytes into its
    // buffer and reports inBytes.size() (more than fitted, if a test asks).
    // False when no read is outstanding.
    bool CompleteRead(EVXTransferStatus inStatus, const std::vector<uint8_t>& inBytes);

    bool IsOpen() const { return mOpen; }

    std::vector<SVXUSBInterface> mInterfaces;  // one FTDI interface: 0x81 in, 0x02 out
    uint8_t mConfigurations = 1;
    uint8_t mConfigurationValue = 1;
    int mActiveConfiguration = 1;
    unsigned mLastReadTimeout = 0;

  private:
    // Logs the line and answers an injected failure, or 0.
    int Call(std::string inLine);

    struct SFailure {
        std::string prefix;
        int status;
        int times;
    };

    CEventLog& mLog;
    uint16_t mVendor, mProduct, mRelease;
    bool mOpen = false;
    std::vector<SFailure> mFailures;
    std::deque<SRead> mReads;
    std::vector<uint8_t> mStatusReply;
    ReadCallback mPending;
    uint8_t* mPendingBuffer = nullptr;
    size_t mPendingLength = 0;
};

class CFakeUSBHost : public CVXUSBHost {
  public:
    explicit CFakeUSBHost(CEventLog& inLog) : mLog(inLog) {}
    // Logs "hotplug 0760:0008".
    int RegisterHotplug(uint16_t inVendor, uint16_t inProduct, DeviceCallback inArrived,
                        DeviceCallback inLeft) override;

    std::shared_ptr<CFakeUSBDevice> MakeDevice(uint16_t inVendor, uint16_t inProduct,
                                               uint16_t inRelease = 0x0200);
    // The device appears (or is reported again) and goes.
    void Plug(const std::shared_ptr<CFakeUSBDevice>& inDevice);
    void Unplug(const std::shared_ptr<CFakeUSBDevice>& inDevice);

    int mRegisterStatus = 0;

  private:
    struct SRegistration {
        uint16_t vendor, product;
        DeviceCallback arrived, left;
    };
    CEventLog& mLog;
    std::vector<SRegistration> mRegistrations;
    std::vector<std::shared_ptr<CFakeUSBDevice>> mPresent;
};
