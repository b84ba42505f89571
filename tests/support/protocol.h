// Requests and expected replies of the frame protocol, byte for byte.
#pragma once

#include <string>

inline const std::string kStartup = "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n\r\n";
inline const std::string kShutdownMessage = "ANALYTICS.CARTRIDGE\r\nCommand: SHUTDOWN\r\n\r\n";

// A request: the first line, the given header lines, the empty line, the body.
inline std::string message(const std::string& headers, const std::string& body = "") {
    return "ANALYTICS.CARTRIDGE\r\n" + headers + "\r\n" + body;
}
inline std::string frameMessage(int width, int height, const std::string& pixels, const std::string& timestamp,
                                int seq) {
    return message("Content-Type: image/rgb\r\nContent-Length: " + std::to_string(pixels.size()) +
                       "\r\nImage-width: " + std::to_string(width) + "\r\nImage-height: " + std::to_string(height) +
                       "\r\nTimestamp: " + timestamp + "\r\nSequence-Number: " + std::to_string(seq) + "\r\n",
                   pixels);
}
inline std::string flatFrame(int width, int height, char level, int seq) {
    return frameMessage(width, height, std::string(static_cast<std::size_t>(width * height * 3), level),
                        std::to_string(1000 + seq), seq);
}

inline std::string okReply(const std::string& timestamp, int seq) {
    return "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp:" + timestamp +
           "\r\nSequence-Number:" + std::to_string(seq) + "\r\n\r\n";
}
inline std::string emptyAnalytics(const std::string& timestamp, int seq) {
    return "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp:" + timestamp +
           "\r\nSequence-Number: " + std::to_string(seq) + "\r\n\r\n";
}
inline std::string errorReply(const std::string& text) {
    return "ANALYTICS.CARTRIDGE\r\nStatus: ERROR\r\nStatus-text: " + text + "\r\n\r\n";
}
inline std::string unknownCommand(const std::string& line) {
    return errorReply("Unknown command " + line + ", expecting ANALYZER.CARTRIDGE");
}
inline std::string headerError(const std::string& text, const std::string& timestamp, int seq) {
    return "ANALYTICS.CARTRIDGE\r\nStatus: ERROR\r\nStatus-text: << " + text + "\r\nTimestamp: " + timestamp +
           "\r\nSequence-Number: " + std::to_string(seq) + "\r\n\r\n";
}
