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

namespace {

// How the platform reads a text as a boolean: blanks, then an optional sign and zeros, then "Y",
// "y", "T", "t" or a digit 1-9 means true; what follows does not matter. The app's login service
// passes "YES" and "NO".
bool textReadsAsTrue(std::string_view text) noexcept {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  while (i < text.size() && text[i] == '0') ++i;
  if (i == text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

}  // namespace

bool AICallContext::boolOption(std::string_view key) const noexcept {
  if (const auto text = json::string(options_, key)) return textReadsAsTrue(*text);
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
