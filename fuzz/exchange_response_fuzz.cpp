// The token endpoint's and the profile endpoint's answers: any body parses without throwing or
// crashing, and a response counts as usable exactly when the call's error stayed "No error" and
// it holds what its exchange saves.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "applogic/platform/clock.h"
#include "applogic/signin/client/ai_exchange_response.h"

namespace {

using namespace applogic::signin;

class FixedClock final : public applogic::platform::Clock {
 public:
  TimePoint now() const override { return TimePoint(std::chrono::seconds(1'700'000'000)); }
};

std::shared_ptr<AICallContext> newContext() {
  return std::make_shared<AICallContext>(AICallMethod::getAccessToken, nullptr, applogic::JsonObject{},
                                         applogic::JsonObject{}, nullptr, std::vector<std::string>{"profile"}, "U");
}

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  const auto clock = std::make_shared<FixedClock>();

  const auto codeContext = newContext();
  AICodeExchangeResponse code(body, clock);
  code.parseServerResponse(*codeContext);
  check(code.hasError() == codeContext->error().hasErrorOccured());
  if (!code.hasError()) check(code.refreshToken() && code.accessToken() && code.accessToken()->isValid(*clock));
  if (code.errorCode()) check(code.hasError());

  const auto refreshContext = newContext();
  AIAccessTokenResponse refresh(body, clock, {"profile"});
  refresh.parseServerResponse(*refreshContext);
  check(refresh.hasError() == refreshContext->error().hasErrorOccured());
  if (!refresh.hasError()) check(refresh.accessToken() && refresh.accessToken()->isValid(*clock));

  const auto profileContext = newContext();
  AIProfileExchangerResponse profile(body);
  profile.parseServerResponse(*profileContext);
  check(profile.hasError() == profileContext->error().hasErrorOccured());
  check(profile.hasError() != profile.profile().has_value());
  return 0;
}
