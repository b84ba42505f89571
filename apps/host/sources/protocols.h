// What each kind of URL may make ffmpeg open.
//
// A camera is a stranger: its redirect or playlist names further addresses, and ffmpeg would fetch them with the host's
// rights, from the host's place in the network. So each scheme gets the protocols it needs itself, and nobody gets
// formats that name further files unless that is asked for.
#pragma once

#include <string>
#include <string_view>

namespace fleifeisa::host {

/// True for SCHEME://...
bool isUrl(std::string_view source);

/// What is wrong with a URL, "" where nothing is: an unknown scheme, no host, a port that is no number ...
/// Never repeats any part of it but the scheme.
std::string urlFault(std::string_view url);

/// For -protocol_whitelist. `datagrams`: RTSP over UDP.
std::string allowedProtocols(std::string_view url, bool datagrams);

/// For -format_whitelist: containers and streams of video that are complete in themselves.
std::string_view selfContainedFormats();

/// The URL with this user and password, "USER:PASSWORD", in place of those it has.
std::string withCredentials(std::string_view url, std::string_view credentials);

/// Reads "USER:PASSWORD" from a file (nobody but its owner may read it) or, written as env:NAME, from an environment
/// variable. @throws SourceError
std::string readCredentials(const std::string& where);

}  // namespace fleifeisa::host
