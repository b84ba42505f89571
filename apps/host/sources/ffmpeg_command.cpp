#include "sources/ffmpeg_command.h"

#include <sys/stat.h>
#include <sysexits.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "common/secrets.h"
#include "sources/images.h"
#include "sources/protocols.h"

namespace fleifeisa::host {
namespace {

/// "-name value", or a name alone.
struct Option {
    std::string name, value;
    bool alone = false;
};

/// A list as users write it: what does not begin with a dash and a letter is the value of the option before.
std::vector<Option> parsedOptions(const std::vector<std::string>& words) {
    const auto is_name = [](const std::string& word) {
        return word.size() > 1 && word[0] == '-' && std::isalpha(static_cast<unsigned char>(word[1])) != 0;
    };
    std::vector<Option> result;
    for (const std::string& word : words) {
        if (is_name(word) || result.empty() || !result.back().alone)
            result.push_back({word, "", true});
        else
            result.back() = {result.back().name, word, false};
    }
    return result;
}

/// Options of protocols and demuxers: in a script they belong to the inner URL. Everything else is for ffmpeg itself.
bool belongsToInput(const std::string& name) {
    constexpr std::array kNames = {"-rtsp_transport",
                                   "-rtsp_flags",
                                   "-allowed_media_types",
                                   "-min_port",
                                   "-max_port",
                                   "-reorder_queue_size",
                                   "-buffer_size",
                                   "-pkt_size",
                                   "-timeout",
                                   "-stimeout",
                                   "-rw_timeout",
                                   "-listen_timeout",
                                   "-user_agent",
                                   "-headers",
                                   "-cookies",
                                   "-referer",
                                   "-auth_type",
                                   "-content_type",
                                   "-http_proxy",
                                   "-method",
                                   "-seekable",
                                   "-multiple_requests",
                                   "-reconnect",
                                   "-reconnect_at_eof",
                                   "-reconnect_on_network_error",
                                   "-reconnect_on_http_error",
                                   "-reconnect_streamed",
                                   "-reconnect_delay_max",
                                   "-max_redirects",
                                   "-ca_file",
                                   "-tls_verify",
                                   "-cert_file",
                                   "-key_file",
                                   "-verifyhost",
                                   "-rtmp_live",
                                   "-rtmp_app",
                                   "-rtmp_playpath",
                                   "-rtmp_conn",
                                   "-passphrase",
                                   "-latency",
                                   "-mode",
                                   "-streamid",
                                   "-fifo_size",
                                   "-overrun_nonfatal",
                                   "-localaddr",
                                   "-probesize",
                                   "-analyzeduration",
                                   "-formatprobesize",
                                   "-max_delay",
                                   "-format_whitelist"};
    return std::ranges::count(kNames, name) > 0;
}

bool holdsSecret(const Option& option) {
    for (const char* name : {"-headers", "-cookies", "-passphrase", "-streamid", "-rtmp_conn", "-http_proxy"})
        if (option.name == name) return true;
    return false;
}

std::string concatQuoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

class Builder {
 public:
    explicit Builder(const SourceOptions& options)
        : options_(options), users_(parsedOptions(options.ffmpeg_input_options)) {
        command_.argv = {options.ffmpeg, "-hide_banner", "-nostdin", "-nostats", "-loglevel", "level+info"};
        if (options.decoder_threads > 0) add("-threads", std::to_string(options.decoder_threads));
    }

    FfmpegCommand build(PacketCopy copy) {
        input();
        // Formats in the list pass untouched; others go through the scaler with the flags that make its results
        // independent of the processor. A frame of another size stays as it is (-autoscale 0), and "showinfo" says
        // size and format of each: the stream itself announces them only once.
        for (const char* word : {"-map", "0:v:0", "-an", "-sn", "-dn", "-sws_flags", "bicubic+accurate_rnd+bitexact",
                                 "-autoscale", "0", "-vf"})
            command_.argv.emplace_back(word);
        command_.argv.push_back("format=" + supportedFormats() + ",sidedata=mode=delete,showinfo=checksum=0");
        for (const char* word : {"-fps_mode", "passthrough", "-enc_time_base", "-1", "-c:v", "rawvideo",
                                 "-flush_packets", "1", "-f", "nut", "pipe:1"})
            command_.argv.emplace_back(word);
        // Whatever codec it is, so that it need not be known before: other codecs become private data in the stream.
        if (copy != PacketCopy::kNone) packets(copy, "pipe:3");
        return std::move(command_);
    }

    FfmpegCommand buildCopy(PacketCopy copy) {
        input();
        packets(copy, "pipe:1");
        return std::move(command_);
    }

 private:
    void input() {
        if (isUrl(options_.source))
            url();
        else
            file();
    }
    /// A copy of the packets with the frames' own times: without the last options the muxer would add a delay of its
    /// own and begin where the decoding order does, which is before the first frame where there are B-frames. Tables
    /// before every frame, so that the stream can be cut anywhere.
    void packets(PacketCopy copy, const std::string& to) {
        for (const char* word : {"-map", "0:v:0", "-sn", "-dn", "-c:v", "copy"}) command_.argv.emplace_back(word);
        if (copy == PacketCopy::kVideo)
            command_.argv.emplace_back("-an");
        else
            for (const char* word : {"-map", "0:a:0?", "-c:a", "aac", "-b:a", "64k"}) command_.argv.emplace_back(word);
        for (const std::string& word :
             {std::string("-output_ts_offset"), std::to_string(kPacketOffsetSeconds), std::string("-muxdelay"),
              std::string("0"), std::string("-muxpreload"), std::string("0"), std::string("-mpegts_flags"),
              std::string("+pat_pmt_at_frames"), std::string("-flush_packets"), std::string("1"), std::string("-f"),
              std::string("mpegts"), to})
            command_.argv.push_back(word);
    }
    const Option* usersOwn(const std::string& name) const {
        const auto found = std::ranges::find(users_, name, &Option::name);
        return found == users_.end() ? nullptr : &*found;
    }
    /// An option of the host, unless the user has it.
    void add(const std::string& name, const std::string& value) {
        if (!usersOwn(name)) mine_.push_back({name, value});
    }
    void inputOf(const std::string& name) {
        for (const auto* list : {&mine_, &users_})
            for (const Option& option : *list) {
                command_.argv.push_back(option.name);
                if (!option.alone) command_.argv.push_back(option.value);
            }
        command_.argv.insert(command_.argv.end(), {"-i", name});
    }

    void url() {
        if (const std::string fault = urlFault(options_.source); !fault.empty()) throw SourceError(EX_USAGE, fault);
        std::string url = options_.source;
        if (!options_.credentials.empty()) url = withCredentials(url, readCredentials(options_.credentials));
        learnSecretsOf(url);
        for (const Option& option : users_)
            if (holdsSecret(option))
                learnSecret(option.value), learnSecret(option.value.substr(option.value.rfind(' ') + 1));
        const bool rtsp = url.starts_with("rtsp");
        if (rtsp) add("-rtsp_transport", "tcp");
        // A second of the stream is enough to know it by; the default of five would delay every reconnection.
        if (isLive(options_)) {
            add("-fflags", "nobuffer");
            add("-flags", "low_delay");
            add("-analyzeduration", "1000000");
        }
        const Option* transport = usersOwn("-rtsp_transport");
        std::string protocols = allowedProtocols(url, transport != nullptr && transport->value != "tcp");
        if (transport && transport->value.starts_with("http")) protocols += ",http";
        if (options_.redirects) {
            protocols += ",http,https,tls,tcp,crypto,data";
        } else {
            add("-format_whitelist", std::string(selfContainedFormats()));
            if (url.starts_with("http")) add("-max_redirects", "0");
        }
        const bool secret = withoutSecrets(url) != url || std::ranges::any_of(users_, holdsSecret);
        if (!secret) {
            add("-protocol_whitelist", protocols);
            return inputOf(url);
        }
        add("-protocol_whitelist", "pipe," + protocols);
        script(url);
    }

    /// The URL, and the options that are its own, in a list for the concat demuxer.
    void script(const std::string& url) {
        command_.script = "ffconcat version 1.0\nfile " + concatQuoted(url) + "\n";
        for (auto* list : {&mine_, &users_}) {
            for (const Option& option : *list)
                if (belongsToInput(option.name) && !option.alone)
                    command_.script += "option " + option.name.substr(1) + " " + concatQuoted(option.value) + "\n";
            std::erase_if(*list, [](const Option& o) { return belongsToInput(o.name) && !o.alone; });
        }
        if (isLive(options_)) mine_.push_back({"-analyzeduration", "1000000"});
        mine_.push_back({"-f", "concat"});
        mine_.push_back({"-safe", "0"});
        inputOf("pipe:0");
    }

    void file() {
        const std::string& path = options_.source;
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) throw SourceError(EX_NOINPUT, path + ": " + std::strerror(errno));
        if (S_ISREG(status.st_mode) && status.st_size == 0) throw SourceError(EX_DATAERR, path + ": the file is empty");
        if (S_ISCHR(status.st_mode)) {
            add("-f", "v4l2");
            return inputOf(path);  // that demuxer opens the device itself: a "file:" would be part of its name
        }
        add("-protocol_whitelist", "file");
        if (isImageName(path)) {
            add("-f", "image2");  // found out from the name alone, else "%d" in it would stand for other files
            add("-pattern_type", "none");
        } else {
            add("-format_whitelist", std::string(selfContainedFormats()));
        }
        inputOf("file:" + path);
    }

    const SourceOptions& options_;
    std::vector<Option> users_, mine_;
    FfmpegCommand command_;
};

}  // namespace

FfmpegCommand ffmpegCommand(const SourceOptions& options, PacketCopy copy) {
    return Builder(options).build(copy);
}

FfmpegCommand ffmpegCopyCommand(const SourceOptions& options, PacketCopy copy) {
    return Builder(options).buildCopy(copy);
}

}  // namespace fleifeisa::host
