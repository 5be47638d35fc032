#include "platform/bus/VXBusParams.h"

#include <systemd/sd-bus.h>

#include <cstring>
#include <type_traits>

#include "platform/bus/VXBusCodes.h"

int VXReadParams(sd_bus_message* inMessage, VXAEParams& outParams) {
    int r = sd_bus_message_enter_container(inMessage, SD_BUS_TYPE_ARRAY, "{sv}");
    if (r < 0) return r;
    while ((r = sd_bus_message_enter_container(inMessage, SD_BUS_TYPE_DICT_ENTRY, "sv")) > 0) {
        const char* key = nullptr;
        if ((r = sd_bus_message_read_basic(inMessage, SD_BUS_TYPE_STRING, &key)) < 0) return r;
        const std::optional<uint32_t> keyword = VXCodeFromString(key);
        const char* contents = nullptr;
        if ((r = sd_bus_message_peek_type(inMessage, nullptr, &contents)) < 0) return r;
        bool taken = false;
        if (keyword && contents) {
            if (std::strcmp(contents, "u") == 0) {
                uint32_t value = 0;
                if ((r = sd_bus_message_read(inMessage, "v", "u", &value)) < 0) return r;
                outParams.push_back({*keyword, value});
                taken = true;
            } else if (std::strcmp(contents, "i") == 0) {
                int32_t value = 0;
                if ((r = sd_bus_message_read(inMessage, "v", "i", &value)) < 0) return r;
                outParams.push_back({*keyword, value});
                taken = true;
            } else if (std::strcmp(contents, "ay") == 0) {
                if ((r = sd_bus_message_enter_container(inMessage, SD_BUS_TYPE_VARIANT, "ay")) < 0)
                    return r;
                const void* bytes = nullptr;
                size_t size = 0;
                if ((r = sd_bus_message_read_array(inMessage, SD_BUS_TYPE_BYTE, &bytes, &size)) < 0)
                    return r;
                const auto* first = static_cast<const uint8_t*>(bytes);
                outParams.push_back({*keyword, std::vector<uint8_t>(first, first + size)});
                if ((r = sd_bus_message_exit_container(inMessage)) < 0) return r;
                taken = true;
            }
        }
        if (!taken && (r = sd_bus_message_skip(inMessage, "v")) < 0) return r;
        if ((r = sd_bus_message_exit_container(inMessage)) < 0) return r;
    }
    if (r < 0) return r;
    return sd_bus_message_exit_container(inMessage);
}

int VXAppendParams(sd_bus_message* inMessage, const VXAEParams& inParams) {
    int r = sd_bus_message_open_container(inMessage, SD_BUS_TYPE_ARRAY, "{sv}");
    if (r < 0) return r;
    for (const SVXAEParam& p : inParams) {
        const std::string key = VXCodeString(p.keyword);
        // A keyword with a NUL byte would be cut short as a bus string, and
        // one that is not UTF-8 refused with the whole message: keywords are
        // ASCII, and any other stays out.
        if (!VXCodeIsASCII(p.keyword)) continue;
        if ((r = sd_bus_message_open_container(inMessage, SD_BUS_TYPE_DICT_ENTRY, "sv")) < 0)
            return r;
        if ((r = sd_bus_message_append_basic(inMessage, SD_BUS_TYPE_STRING, key.c_str())) < 0)
            return r;
        r = std::visit(
            [inMessage](const auto& inValue) -> int {
                using T = std::decay_t<decltype(inValue)>;
                if constexpr (std::is_same_v<T, uint32_t>) {
                    return sd_bus_message_append(inMessage, "v", "u", inValue);
                } else if constexpr (std::is_same_v<T, int32_t>) {
                    return sd_bus_message_append(inMessage, "v", "i", inValue);
                } else {
                    int s = sd_bus_message_open_container(inMessage, SD_BUS_TYPE_VARIANT, "ay");
                    if (s < 0) return s;
                    s = sd_bus_message_append_array(inMessage, SD_BUS_TYPE_BYTE, inValue.data(),
                                                    inValue.size());
                    if (s < 0) return s;
                    return sd_bus_message_close_container(inMessage);
                }
            },
            p.value);
        if (r < 0) return r;
        if ((r = sd_bus_message_close_container(inMessage)) < 0) return r;
    }
    return sd_bus_message_close_container(inMessage);
}
