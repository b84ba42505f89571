#include "outputs/jsonl.h"

#include "common/text.h"

namespace fleifeisa::host {
namespace {

void appendObject(std::string& line, const AnalyzerObject& object) {
    const auto field = [&line](const char* name, int value) {
        line += name;
        line += std::to_string(value);
    };
    field("{\"id\":", object.id);
    field(",\"left\":", object.left);
    field(",\"top\":", object.top);
    field(",\"width\":", object.width);
    field(",\"height\":", object.height);
    field(",\"density\":", object.density);
    line += '}';
}

}  // namespace

void JsonlOutput::frame(const FrameResult& result) {
    std::string line = "{\"camera\":" + jsonString(result.camera);
    line += ",\"sequence\":" + std::to_string(result.sequence);
    line += ",\"timestamp\":\"" + rfc3339(result.time_ns) + "\",\"time_ns\":" + std::to_string(result.time_ns);
    line += result.live ? ",\"live\":true" : ",\"live\":false";
    line += ",\"dropped\":" + std::to_string(result.dropped);
    line += ",\"width\":" + std::to_string(result.width) + ",\"height\":" + std::to_string(result.height);
    line += result.detection ? ",\"detection\":true" : ",\"detection\":false";
    line += ",\"objects\":[";
    for (const AnalyzerObject& object : result.objects) {
        if (line.back() == '}') line += ',';
        appendObject(line, object);
    }
    line += "]}\n";
    file_.write(line);
    endRecord(result);
}

}  // namespace fleifeisa::host
