// Replies of an analyzer, cut as they come from the pipe: whatever the bytes, the parser refuses them or what it found
// is within the bounds it promises.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "analyzer/reply.h"

namespace {

using namespace fleifeisa::host;

void check(bool condition) {
    if (!condition) std::abort();
}

void checkObject(const AnalyzerObject& o) {
    check(o.device >= 0 && o.analyzer_id >= 0 && o.id >= 0 && o.id <= kMaxObjectId);
    check(o.density >= 0 && o.density <= 100 && o.width >= 1 && o.height >= 1);
    check(o.left >= -kBoxMargin && o.top >= -kBoxMargin);
    check(o.left + o.width <= kMaxFrameSide + kBoxMargin && o.top + o.height <= kMaxFrameSide + kBoxMargin);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    try {
        while (!rest.empty()) {
            const std::size_t length = replyLength(rest);
            check(length <= rest.size() && length <= kMaxReplyBytes + 9000);
            if (length == 0) break;
            const Reply reply = parseReply(rest.substr(0, length));
            check(reply.objects.size() <= kMaxObjects);
            for (const AnalyzerObject& object : reply.objects) checkObject(object);
            rest.remove_prefix(length);
        }
    } catch (const std::runtime_error&) {
    }
    return 0;
}
