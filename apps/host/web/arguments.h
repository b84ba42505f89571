// Values of requests: taken strictly, refused with a sentence.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "http/message.h"
#include "web/accounts.h"
#include "web/event_queries.h"

namespace fleifeisa::host {

/// "2026-11-21T08:15:02.5Z" (an offset as +01:00 is allowed), or nanoseconds since 1970. @throws HttpError 400
std::int64_t parseInstant(std::string_view name, std::string_view text);

/// The argument as a whole number, `fallback` where there is none. @throws HttpError 400
std::int64_t numberArgument(const HttpRequest& request, std::string_view name, std::int64_t fallback, std::int64_t low,
                            std::int64_t high);
/// "true" or "false". @throws HttpError 400
std::optional<bool> flagArgument(const HttpRequest& request, std::string_view name);
/// Of `since` and `until`: from the beginning of time to `now`, where they are missing.
std::pair<std::int64_t, std::int64_t> spanArgument(const HttpRequest& request, std::int64_t since, std::int64_t until);

/// All filters of a list of events; cameras are those of `account` that were asked for. @throws HttpError 400
EventQuery queryOf(const HttpRequest& request, const Account& account);

}  // namespace fleifeisa::host
