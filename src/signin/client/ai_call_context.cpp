#include "applogic/signin/client/ai_call_context.h"

#include "applogic/signin/client/ai_utils.h"

namespace applogic::signin {

AICallContext::AICallContext(AICallMethod method, std::shared_ptr<AIAuthenticationDelegate> authenticationDelegate,
                             JsonObject overrideParams, JsonObject options, std::shared_ptr<AIError> error,
                             std::vector<std::string> scopes, std::string UID)
    : method_(method),
      delegate_(std::move(authenticationDelegate)),
      overrideParams_(std::move(overrideParams)),
      options_(std::move(options)),
      error_(error ? std::move(error) : std::make_shared<AIError>()),
      UID_(std::move(UID)),
      scopes_(std::move(scopes)) {}

bool AICallContext::boolOption(std::string_view key) const noexcept {
  return json::boolean(options_, key).value_or(false);
}

std::optional<std::string_view> AICallContext::stringOption(std::string_view key) const noexcept {
  return json::string(options_, key);
}

void AICallContext::succeed(std::uint32_t api, Json result) const {
  if (delegate_) delegate_->requestDidSucceed(AIUtils::resultObjectForAPI(api, std::move(result)));
}

void AICallContext::fail(std::uint32_t api) const {
  if (delegate_) delegate_->requestDidFail(AIUtils::errorObjectForAPI(api, *error_));
}

void AICallContext::copyErrorMessagesFrom(const AICallContext* source,
                                          const std::vector<std::shared_ptr<AICallContext>>& contexts) {
  if (source == nullptr || contexts.size() < 2) return;
  const AIError copied = source->error();
  for (const auto& context : contexts) {
    if (context) context->error().mergeWith(&copied);
  }
}

}  // namespace applogic::signin
