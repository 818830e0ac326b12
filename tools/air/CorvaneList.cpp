#include "tools/air/CorvaneList.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

namespace corvane::air {

namespace {

constexpr std::array<std::string_view, 4> head{"-hide_banner", "-loglevel", "warning", "-stats"};

struct Scheme
{
    std::string_view name;
    std::string_view port; ///< empty: none is usual
};

constexpr std::array<Scheme, 8> networkSchemes{{{"rtmp", "1935"},
                                                {"rtmpe", "1935"},
                                                {"rtmps", "443"},
                                                {"rtmpt", "80"},
                                                {"rtmpte", "80"},
                                                {"rtmpts", "443"},
                                                {"srt", ""},
                                                {"udp", ""}}};

const Scheme *networkScheme(std::string_view url)
{
    const std::size_t end = url.find("://");
    if (end == std::string_view::npos)
        return nullptr;
    const auto *const found =
        std::find_if(networkSchemes.begin(), networkSchemes.end(),
                     [&](const Scheme &scheme) { return scheme.name == url.substr(0, end); });
    return found == networkSchemes.end() ? nullptr : found;
}

/// Beginning of a slave of CORVANE's template for this format.
std::string slaveHead(std::string_view format)
{
    return "[f=" + std::string(format) +
           R"(:use_fifo=1:fifo_options=queue_size=120\:drop_pkts_on_overflow=1:onfail=ignore])";
}

constexpr std::array<std::string_view, 2> formats{"flv", "mpegts"};

/// Format of the slave that begins at `at`; empty if none does.
std::string_view slaveFormatAt(std::string_view slaves, std::size_t at)
{
    for (const std::string_view format : formats) {
        if (slaves.substr(at).starts_with(slaveHead(format)))
            return format;
    }
    return {};
}

/// Slaves of CORVANE's template; none if the text has another form. A destination may hold any character: it
/// ends only before the head of the next slave.
std::vector<Leg> readSlaves(std::string_view slaves)
{
    std::vector<Leg> legs;
    for (std::size_t at = 0; at < slaves.size();) {
        const std::string_view format = slaveFormatAt(slaves, at);
        if (format.empty())
            return {};
        const std::size_t begin = at + slaveHead(format).size();
        std::size_t end = slaves.find('|', begin);
        while (end != std::string_view::npos && slaveFormatAt(slaves, end + 1).empty())
            end = slaves.find('|', end + 1);
        end = std::min(end, slaves.size());
        legs.push_back({std::string(format), std::string(slaves.substr(begin, end - begin))});
        at = end + 1;
    }
    return legs;
}

/// Stream key of an RTMP URL: what follows its last slash, parameters included. Empty: none.
std::string_view streamKey(std::string_view url)
{
    const std::size_t path = url.starts_with("rtmp") ? url.find('/', url.find("://") + 3) : url.npos;
    if (path == std::string_view::npos)
        return {};
    const std::string_view beforeParameters = url.substr(0, url.find('?', path));
    return url.substr(beforeParameters.rfind('/') + 1);
}

void replaceAll(std::string &text, std::string_view what, std::string_view with)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
}

/// True for the inputs that have no clock of their own, which CORVANE reads at native rate.
bool hasOwnClock(const std::vector<std::string> &arguments)
{
    return std::find(arguments.begin(), arguments.end(), "-re") == arguments.end();
}

} // namespace

std::optional<CorvaneList> readCorvaneList(const std::vector<std::string> &arguments)
{
    constexpr std::size_t outputSize = 3;
    if (std::ranges::mismatch(head, arguments).in1 != head.end() ||
        std::find(arguments.begin(), arguments.end(), "-map") != arguments.end() ||
        std::find(arguments.begin(), arguments.end(), "-i") == arguments.end())
        return {};

    CorvaneList list;
    list.formatAt = arguments.size() - outputSize; // the head alone is longer
    list.liveSource = hasOwnClock(arguments);
    if (arguments[list.formatAt] != "-f")
        return {};
    const std::string &format = arguments[list.formatAt + 1];
    const std::string &target = arguments[list.formatAt + 2];
    list.severalOutputs = format == "tee";
    if (list.severalOutputs)
        list.legs = readSlaves(target);
    else if (std::find(formats.begin(), formats.end(), format) != formats.end())
        list.legs = {{format, target}};
    if (list.legs.empty() || !std::all_of(list.legs.begin(), list.legs.end(),
                                          [](const Leg &leg) { return networkScheme(leg.target); }))
        return {};
    return list;
}

std::string hostAndPort(std::string_view url)
{
    const Scheme *const scheme = networkScheme(url);
    const std::size_t begin = url.find("://");
    if (begin == std::string_view::npos)
        return "?";
    std::string_view authority = url.substr(begin + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (const std::size_t user = authority.rfind('@'); user != std::string_view::npos)
        authority.remove_prefix(user + 1);
    if (authority.empty() || authority.front() == ':')
        return "?";
    const std::size_t lastMark = authority.find_last_of(":]"); // an address in brackets has colons of its own
    const bool namesPort = lastMark != std::string_view::npos && authority[lastMark] == ':';
    if (namesPort || !scheme || scheme->port.empty())
        return std::string(authority);
    return std::string(authority) + ':' + std::string(scheme->port);
}

std::string withoutSecrets(std::string text, const std::vector<Leg> &legs)
{
    constexpr std::size_t shortestKey = 6;
    std::vector<std::pair<std::string, std::string>> secrets; // each with what stands there instead
    for (const Leg &leg : legs) {
        const std::string scheme = leg.target.substr(0, leg.target.find("://") + 3);
        secrets.emplace_back(leg.target, scheme + hostAndPort(leg.target) + "/…");
        if (const std::string_view key = streamKey(leg.target); key.size() >= shortestKey)
            secrets.emplace_back(key, "…");
    }
    // The longer first: one may begin like another.
    std::ranges::sort(secrets, std::greater(), [](const auto &secret) { return secret.first.size(); });
    for (const auto &[secret, instead] : secrets)
        replaceAll(text, secret, instead);
    return text;
}

} // namespace corvane::air
