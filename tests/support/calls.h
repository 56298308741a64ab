// The exported functions by their names, called with arguments from a source: the words of a row, or a fuzzer's
// bytes.
#pragma once

#include "rtsptap_extended.h"

#include <deque>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>

namespace rtsptap::test {

template <auto function> consteval std::string_view NameOf() {
    std::string_view name = __PRETTY_FUNCTION__; // "... [with auto function = NAME; ...", "... [function = &NAME]"
    name.remove_prefix(name.find("function = ") + 11);
    name.remove_prefix(name[0] == '&');
    return name.substr(0, name.find_first_of(";]"));
}

// The source's Next<T>() gives the arguments from left to right. A pointer returned counts as whether there is one.
template <typename Source, typename Result, typename... Parameters>
int64_t CallFrom(Source &source, Result (*function)(Parameters...)) {
    const std::tuple<Parameters...> arguments{source.template Next<Parameters>()...};
    const Result result = std::apply(function, arguments);
    if constexpr (std::is_pointer_v<Result>)
        return result != nullptr ? 1 : 0;
    else
        return result;
}

template <typename Source> struct Function {
    std::string_view name;
    int64_t (*call)(Source &);
};

template <typename Source, auto... functions>
constexpr Function<Source> kTable[] = {
    {NameOf<functions>(), [](Source &source) { return CallFrom(source, functions); }}...};

// The first kHarmless may be called with whatever stands for a client and a list.
constexpr int kHarmless = 48;
template <typename Source>
constexpr auto &kFunctions =
    kTable<Source, ValidateRTSPClientHandle, RTSPClientSetMTUSize, RTSPClientSendOptionsRequest,
           RTSPClientSendDescribeRequest, RTSPClientSendSetupRequest, RTSPClientSendPlayRequest,
           RTSPClientSendPauseRequest, RTSPClientSendTeardownRequest, RTSPClientGetNbStreams, RTSPClientGetSDPInfo,
           RTSPClientGetSDPFieldInfo, RTSPClientGetLastReply, RTSPClientGetSSRC, RTPClientConfigLatency,
           RTPClientSetAudioVideoBufferSize, RTPClientGetNbOfPktInBuffer, RTPClientGetStreamPktCount,
           RTPClientGetTSOffset, RTPClientPeekRTPStreamData, StartThirdPartyClient, CreateRTPStream,
           RTSPTapSetDataProto, RTSPTapForgetChallenge, RTSPAddHeaderToList, RTSPModifyHeaderInList,
           RTSPRemoveHeaderFromList, RTSPTapSetOption, RTSPTapGetOption, RTSPTapSetOptionText, RTSPTapGetOptionText,
           RTSPTapSetRule, RTSPTapGetRuleUse, RTSPTapGetParameter, RTSPTapSetParameter, RTSPTapTeardown,
           RTSPTapPlay, RTSPTapGetDescriptor, RTSPTapInterrupt, RTSPTapNextDeadline, RTSPTapOpen, RTSPTapSetup,
           RTSPTapStart, RTSPTapBeginOpen, RTSPTapBeginSetup, RTSPTapBeginPlay, RTSPTapBeginPause,
           RTSPTapBeginTeardown, RTSPTapProgress, RTSPClientConnect, RTSPClientAutoRTSPConnect,
           RTSPDestroyHeaderList, RTPClientGetRTPStreamData, RTPClientFreeRTPStreamData, RTSPClientDestroy>;

// Arguments from words apart by spaces: numbers, texts, null; any other word for a pointer stands for a place that
// its owner can look at. {NAME} is what `names` says.
struct Words {
    int64_t Call(std::string line) {
        for (const auto &[name, value] : names)
            for (std::size_t at = line.find(name); at != line.npos; at = line.find(name, at + value.size()))
                line.replace(at, name.size(), value);
        words_ = std::istringstream(line);
        read_.clear();
        const std::string &name = NextWord();
        for (const Function<Words> &function : kFunctions<Words>)
            if (function.name == name) return function.call(*this);
        return INT64_MIN;
    }

    template <typename T> T Next() {
        const std::string &word = NextWord();
        if constexpr (std::is_integral_v<T>)
            return static_cast<T>(std::stoll(word));
        else if (word == "null")
            return nullptr;
        else if constexpr (std::is_same_v<T, const char *>)
            return word.c_str();
        else if constexpr (std::is_same_v<T, char *>)
            return buffer;
        else if constexpr (std::is_same_v<T, const RTSPTapPlayRequest *>)
            return &(play = {sizeof play, 0, 0, nullptr, 0, 0, 0, 0});
        else if constexpr (std::is_same_v<T, RTSPTapPlayReply *>)
            return nullptr;
        else if constexpr (std::is_same_v<T, RTPStreamData **>)
            return &packet;
        else if constexpr (std::is_same_v<T, RTPStreamData *>)
            return &record;
        else if constexpr (sizeof(std::remove_pointer_t<T>) == sizeof wide)
            return reinterpret_cast<T>(&wide); // int64_t *, uint64_t *
        else
            return reinterpret_cast<T>(&(size = room)); // int32_t *, uint32_t *
    }

    std::map<std::string, std::string> names; // "{client}" and the like
    char buffer[4096] = {};
    int32_t room = sizeof buffer, size = 0;
    int64_t wide = 0;
    RTPStreamData *packet = nullptr;
    RTPStreamData record = {};
    RTSPTapPlayRequest play = {};

private:
    const std::string &NextWord() {
        std::string word;
        words_ >> word;
        return read_.emplace_back(word);
    }

    std::istringstream words_;
    std::deque<std::string> read_; // as long as the call may look at them
};

} // namespace rtsptap::test
