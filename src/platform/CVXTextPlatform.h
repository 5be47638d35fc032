// Platform outputs that describe each call as one line of text instead of
// acting on the desktop: vxctl prints them, and the tests record them. The
// formats are stable so that scripts can rely on them:
//   key <virtual key> down|up [char <code>]
//   mouse <x>,<y> down|up
//   event <signature> <event id> <keyword>=<value> ...
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/CVXAppNotifier.h"
#include "platform/CVXEventPoster.h"

using VXLineSink = std::function<void(std::string)>;

// Four characters of a signature or keyword, most significant byte first.
std::string VXFourCCText(uint32_t inCode);

class CVXTextPoster : public CVXEventPoster {
  public:
    explicit CVXTextPoster(VXLineSink inSink) : mSink(std::move(inSink)) {}
    void PostKeyboardEvent(uint8_t inCharCode, uint16_t inVirtualKey, bool inKeyDown) override;
    void PostMouseEvent(double inX, double inY, bool inButtonDown) override;

  private:
    VXLineSink mSink;
};

class CVXTextNotifier : public CVXAppNotifier {
  public:
    explicit CVXTextNotifier(VXLineSink inSink) : mSink(std::move(inSink)) {}
    bool SendApplicationEvent(uint32_t inSignature, uint32_t inEventID,
                              const std::vector<SVXEventParam>& inParams) override;

  private:
    VXLineSink mSink;
};
