#include "sources/protocols.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "common/fd.h"
#include "common/secrets.h"
#include "sources/source.h"

namespace fleifeisa::host {
namespace {

struct Scheme {
    std::string_view name;
    std::string_view protocols;
    bool needs_host;  ///< the others may listen at a port
};
constexpr std::array<Scheme, 10> kSchemes = {{
    {"rtsp", "tcp", true},
    {"rtsps", "tls,tcp", true},
    {"http", "http,tcp", true},
    {"https", "https,tls,tcp", true},
    {"rtmp", "rtmp,tcp", true},
    {"rtmps", "rtmps,tls,tcp", true},
    {"srt", "srt", false},
    {"udp", "udp", false},
    {"rtp", "rtp,udp", false},
    {"tcp", "tcp", false},
}};

const Scheme* findScheme(std::string_view url) {
    const std::string_view name = url.substr(0, url.find("://"));
    const auto* const found = std::ranges::find(kSchemes, name, &Scheme::name);
    return found == kSchemes.end() ? nullptr : found;
}

std::string unknownScheme(std::string_view url) {
    std::string known;
    for (const Scheme& scheme : kSchemes) known += (known.empty() ? "" : ", ") + std::string(scheme.name);
    return "unknown protocol '" + std::string(url.substr(0, url.find("://"))) + "' (there are " + known + ")";
}

bool validPort(std::string_view port) {
    int value = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), value);
    return error == std::errc() && end == port.data() + port.size() && value > 0 && value <= 65535;
}

}  // namespace

bool isUrl(std::string_view source) {
    const std::size_t colon = source.find("://");
    return colon != std::string_view::npos && colon > 0 && source.find('/') == colon + 1;
}

std::string urlFault(std::string_view url) {
    const Scheme* scheme = findScheme(url);
    if (!scheme) return unknownScheme(url);
    const auto odd = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == 127; };
    if (std::ranges::any_of(url, odd))
        return "malformed URL: it holds a space or a control character (%20 stands for a space)";
    const std::string_view rest = url.substr(url.find("://") + 3);
    std::string_view host = rest.substr(0, rest.find_first_of("/?#"));
    if (const std::size_t at = host.rfind('@'); at != std::string_view::npos)
        host.remove_prefix(at + 1);
    else if (rest.substr(0, rest.find_first_of("?#")).find('@') != std::string_view::npos &&
             host.find(':') != std::string_view::npos && !validPort(host.substr(host.rfind(':') + 1)))
        return "malformed URL: in a user or password / is written %2F, @ %40, ? %3F, # %23";
    const std::size_t bracket = host.find(']');
    if (host.starts_with('[') == (bracket == std::string_view::npos))
        return "malformed URL: the brackets of the address";
    const std::size_t colon = host.find(':', bracket == std::string_view::npos ? 0 : bracket);
    if (colon != std::string_view::npos && !validPort(host.substr(colon + 1)))
        return "malformed URL: the port is no number from 1 to 65535";
    if (scheme->needs_host && host.substr(0, colon).empty()) return "malformed URL: it names no host";
    return "";
}

std::string allowedProtocols(std::string_view url, bool datagrams) {
    const Scheme* scheme = findScheme(url);
    if (!scheme) throw SourceError(EX_USAGE, unknownScheme(url));
    return std::string(scheme->protocols) + (datagrams && scheme->name.starts_with("rtsp") ? ",rtp,udp" : "");
}

std::string_view selfContainedFormats() {
    return "3g2,3gp,apng,asf,asf_o,av1,avi,avs,avs2,avs3,cavsvideo,dhav,dirac,dnxhd,dv,flic,flv,gif,gxf,h261,"
           "h263,h264,hevc,ivf,kux,live_flv,lmlm4,m4a,m4v,matroska,mj2,mjpeg,mjpeg_2000,mov,mp4,mpeg,mpegts,"
           "mpegtsraw,mpegvideo,mpjpeg,mxf,nsv,nut,nuv,obu,ogg,pva,r3d,rm,rtp,rtsp,ser,smjpeg,swf,v210,vc1,"
           "vc1test,vvc,webm,wtv,yuv4mpegpipe,jpeg_pipe,png_pipe,webp_pipe";
}

std::string withCredentials(std::string_view url, std::string_view credentials) {
    const std::size_t begin = url.find("://") + 3;
    std::string_view rest = url.substr(begin);
    const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) rest.remove_prefix(at + 1);
    const std::size_t colon = credentials.find(':');
    std::string user = percentEncoded(credentials.substr(0, colon));
    if (colon != std::string_view::npos) user += ":" + percentEncoded(credentials.substr(colon + 1));
    return std::string(url.substr(0, begin)) + user + "@" + std::string(rest);
}

std::string readCredentials(const std::string& where) {
    std::string text;
    if (where.starts_with("env:")) {
        const char* value = std::getenv(where.substr(4).c_str());
        if (!value)
            throw SourceError(EX_CONFIG, "there is no environment variable " + where.substr(4) + " with credentials");
        text = value;
    } else {
        const Fd file(::open(where.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        if (!file) throw SourceError(EX_NOINPUT, where + ": " + std::strerror(errno));
        struct stat status {};
        ::fstat(file.get(), &status);
        if (!S_ISREG(status.st_mode)) throw SourceError(EX_CONFIG, where + ": credentials stand in a regular file");
        if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
            throw SourceError(EX_CONFIG, where + ": others may read these credentials (chmod 600)");
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
        text.assign(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        text.erase(std::min(text.find_first_of("\r\n"), text.size()));
    }
    if (text.empty() || text.find(':') == std::string::npos)
        throw SourceError(EX_CONFIG, where + ": expected USER:PASSWORD");
    learnSecret(text.substr(text.find(':') + 1));
    learnSecret(percentEncoded(text.substr(text.find(':') + 1)));
    return text;
}

}  // namespace fleifeisa::host
