#include "common/secrets.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <mutex>
#include <vector>

namespace fleifeisa {
namespace {

constexpr std::size_t kShortestSecret = 4, kMostSecrets = 4096, kTokenLength = 16;
constexpr std::string_view kHidden = "***";

std::mutex mutex;
std::vector<std::string> secrets;  // longest first: one may be part of another

bool isSpace(char c) {
    return static_cast<unsigned char>(c) <= ' ';
}
bool isAlnum(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

/// Letters and digits mixed, and long: nobody names a stream like that.
bool looksRandom(std::string_view part) {
    const bool plain = std::all_of(part.begin(), part.end(), isAlnum);
    const bool digits = part.find_first_of("0123456789") != std::string_view::npos;
    const bool letters = std::any_of(part.begin(), part.end(), [](char c) { return std::isalpha(c) != 0; });
    return part.size() >= kTokenLength && plain && digits && letters;
}

bool isSecretPart(std::string_view part) {
    return percentDecoded(part).find('=') != std::string::npos || looksRandom(part);
}

/// Where the scheme of the URL with "://" at `colon` begins; `colon` where there is none.
std::size_t schemeBegin(std::string_view text, std::size_t colon) {
    std::size_t begin = colon;
    while (begin > 0 && (isAlnum(text[begin - 1]) || text[begin - 1] == '+' || text[begin - 1] == '.')) --begin;
    return begin;
}

/// What stands behind "://", without the user and the secrets of path and query.
std::string hiddenRest(std::string_view rest) {
    std::string result;
    if (const std::size_t at = rest.rfind('@'); at != std::string_view::npos) {
        result = (at == 0 ? "" : std::string(kHidden)) + "@";  // "udp://@239.0.0.1" names nobody
        rest.remove_prefix(at + 1);
    }
    const std::size_t query = rest.find_first_of("?#");
    std::string_view path = rest.substr(0, query);
    for (bool host = true; !path.empty(); host = false) {
        const std::size_t end = std::min(path.find('/'), path.size());
        const std::string_view part = path.substr(0, end);
        result += !host && isSecretPart(part) ? kHidden : part;
        if (end < path.size()) result += '/';
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    if (query != std::string_view::npos) result += std::string("?").append(kHidden);
    return result;
}

std::string hideUrls(std::string_view text) {
    std::string result;
    for (std::size_t colon; (colon = text.find("://")) != std::string_view::npos;) {
        const std::size_t rest = colon + 3;
        const std::size_t begin = schemeBegin(text, colon);
        const char quote = begin > 0 ? text[begin - 1] : ' ';
        std::size_t end = rest;
        while (end < text.size() && !isSpace(text[end]) && text[end] != '"' && text[end] != '<' &&
               (quote != '\'' || text[end] != '\''))
            ++end;
        std::size_t last = end;  // punctuation of the sentence around it is no part of the URL
        while (last > rest && std::string_view(":,;.)'").find(text[last - 1]) != std::string_view::npos) --last;
        result += text.substr(0, rest);
        result += hiddenRest(text.substr(rest, last - rest));
        result += text.substr(last, end - last);
        text.remove_prefix(end);
    }
    return result.append(text);
}

bool tellingName(std::string name) {
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* word : {"pass", "pwd", "pw", "token", "key", "auth", "secret", "sig", "session", "cred", "hash"})
        if (name.find(word) != std::string::npos) return true;
    return false;
}

/// Values of "name=value" in path and query. Some cameras join the parameters with "_".
void learnParameters(std::string_view text) {
    constexpr std::string_view kEnds = "&;/?#_";
    for (std::size_t equals = text.find('='); equals != std::string_view::npos; equals = text.find('=', equals + 1)) {
        const std::size_t before = text.substr(0, equals).find_last_of("&;/?#_=");
        const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
        if (!tellingName(std::string(text.substr(begin, equals - begin)))) continue;
        const std::string_view value = text.substr(equals + 1);
        learnSecret(value.substr(0, value.find_first_of(kEnds)));
        learnSecret(value.substr(0, value.find_first_of("&;/?#")));
    }
}

}  // namespace

std::string percentDecoded(std::string_view text) {
    const auto digit = [](char c) {
        return std::isxdigit(static_cast<unsigned char>(c)) == 0 ? -1 : c <= '9' ? c - '0' : (c | 32) - 'a' + 10;
    };
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? digit(text[i + 1]) : -1;
        const int low = high >= 0 ? digit(text[i + 2]) : -1;
        result += low < 0 ? text[i] : static_cast<char>(high * 16 + low);
        if (low >= 0) i += 2;
    }
    return result;
}

std::string percentEncoded(std::string_view text) {
    static constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 128 && (isAlnum(c) || std::string_view("-._~").find(c) != std::string_view::npos))
            result += c;
        else
            (result += '%').append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15u]);
    }
    return result;
}

void learnSecret(std::string_view secret) {
    const std::lock_guard lock(mutex);
    for (const std::string& form : {std::string(secret), percentDecoded(secret)}) {
        if (form.size() < kShortestSecret || secrets.size() >= kMostSecrets) continue;
        if (std::ranges::find(secrets, form) == secrets.end()) secrets.push_back(form);
    }
    std::ranges::stable_sort(secrets, std::greater<>(), &std::string::size);
}

void learnSecretsOf(std::string_view url) {
    const std::size_t colon = url.find("://");
    if (colon == std::string_view::npos) return;
    std::string_view rest = url.substr(colon + 3);
    if (const std::size_t at = rest.rfind('@'); at != std::string_view::npos) {
        const std::string_view user = rest.substr(0, at);
        const std::size_t separator = user.find(':');
        learnSecret(separator == std::string_view::npos ? user : user.substr(separator + 1));
        rest.remove_prefix(at + 1);
    }
    learnParameters(rest);
    for (std::string_view path = rest.substr(0, rest.find_first_of("?#")); !path.empty();) {
        const std::size_t end = std::min(path.find('/'), path.size());
        if (looksRandom(path.substr(0, end))) learnSecret(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
}

std::string withoutSecrets(std::string_view text) {
    std::string result = hideUrls(text);
    const std::lock_guard lock(mutex);
    for (const std::string& secret : secrets)
        for (std::size_t at = 0; (at = result.find(secret, at)) != std::string::npos; at += kHidden.size())
            result.replace(at, secret.size(), kHidden);
    return result;
}

}  // namespace fleifeisa
