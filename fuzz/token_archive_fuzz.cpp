// The token archive reader: any bytes from the secure store either give no token or a token whose
// own archive reads back as the same token, and reading never throws or crashes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "applogic/platform/clock.h"
#include "applogic/signin/client/ai_token.h"

namespace {

class FixedClock final : public applogic::platform::Clock {
 public:
  TimePoint now() const override { return TimePoint(std::chrono::seconds(1'700'000'000)); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using applogic::signin::AIToken;
  const auto token = AIToken::unarchiveFromNSData(std::span(data, size));
  if (!token) return 0;
  const FixedClock clock;
  (void)token->isValid(clock);

  const auto archived = token->getValue();
  const auto again = AIToken::unarchiveFromNSData(archived);
  // A token's own archive must read back as the same class and the same token, and archiving
  // that copy must give the same bytes (dates settle after one rounding to the microsecond).
  if (!again || again->className() != token->className() || !again->isEqual(*token) ||
      again->getValue() != archived || again->isValid(clock) != token->isValid(clock)) {
    std::abort();
  }
  return 0;
}
