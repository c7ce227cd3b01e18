#include "applogic/signin/amazon_login_service.h"

#include <utility>

#include "applogic/foundation/dispatch_group.h"
#include "applogic/support/fatal.h"

namespace applogic::signin {

void AmazonLoginServiceAuthDelegate::requestDidSucceed(const APIResult&) {
  if (success_) success_();
}

void AmazonLoginServiceGetAccessTokenDelegate::requestDidSucceed(const APIResult& result) {
  if (result.result().is_null()) fatalError("AmazonLoginServiceGetAccessTokenDelegate: the answer carries no result");
  if (const auto token = result.resultString()) {
    if (success_) success_(std::string(*token));
    return;
  }
  // Not a string: a failure without an error, which the service leaves unreported.
  if (failure_) failure_(std::nullopt);
}

void AmazonLoginServiceGetProfileDelegate::requestDidSucceed(const APIResult& result) {
  const JsonObject* profile = result.resultObject();
  if (!profile) fatalError("AmazonLoginServiceGetProfileDelegate: the answer carries no profile object");
  if (success_) success_(*profile);
}

std::shared_ptr<AmazonLoginService> AmazonLoginService::make(AIMobileLib client) {
  return std::shared_ptr<AmazonLoginService>(new AmazonLoginService(std::move(client)));
}

AmazonLoginService::AmazonLoginService(AIMobileLib client) : client_(std::move(client)) {
  if (client_.proxy() && client_.proxy()->services()) mainThread_ = client_.proxy()->services()->platform().mainThread;
  if (!mainThread_) fatalError("AmazonLoginService: the sign-in client's platform has no MainThread");
}

Error AmazonLoginService::convertErrorType(const APIError& apiError) {
  // An `APIError` always carries its `AIError`, so the error cannot be absent here.
  const AIError& error = apiError.error();
  if (error.code() < 0) fatalError("AmazonLoginService: the sign-in client reported a negative error code");
  return Error{kAmazonLoginErrorDomain, error.code(), {{"message", error.message()}}};
}

void AmazonLoginService::login(bool sandbox, LoginCompletion completion) {
  if (!completion) completion = [](Result<AmazonLoginInfo>) {};
  const JsonObject options{{kAIOptionSandboxMode, sandbox ? "YES" : "NO"}};
  const std::weak_ptr<AmazonLoginService> weak = weak_from_this();

  auto onAuthorized = [weak, options, completion, mainThread = mainThread_] {
    // Written by the two steps without a lock: both answer on the main thread.
    struct Slots {
      std::optional<std::string> accessToken;
      std::optional<JsonObject> profile;
      std::optional<Error> error;
    };
    auto slots = std::make_shared<Slots>();
    DispatchGroup group;

    // A step skipped because the service is gone, or a failure without an error, never leaves
    // the group: the final step then never runs, so nothing is reported.
    group.enter();
    if (const auto self = weak.lock()) {
      self->getAuthToken(options, [slots, group](Result<std::string> result) mutable {
        if (result.ok()) {
          slots->accessToken = std::move(result).value();
        } else {
          slots->error = result.error();
        }
        group.leave();
      });
    }
    group.enter();
    if (const auto self = weak.lock()) {
      self->getUserInfo(options, [slots, group](Result<JsonObject> result) mutable {
        if (result.ok()) {
          slots->profile = std::move(result).value();
        } else {
          slots->error = result.error();
        }
        group.leave();
      });
    }
    group.notify(mainThread, [slots, completion] {
      if (slots->profile && !slots->profile->empty() && slots->accessToken) {
        const auto email = json::string(*slots->profile, "email");
        const auto userID = json::string(*slots->profile, "user_id");
        if (email && userID) {
          completion(Result<AmazonLoginInfo>::success(
              AmazonLoginInfo{std::string(*email), std::string(*userID), *slots->accessToken}));
          return;
        }
      }
      if (slots->error) completion(Result<AmazonLoginInfo>::failure(*slots->error));
    });
  };
  auto onFailed = [weak, completion](std::optional<APIError> error) {
    if (!error) return;
    if (!weak.lock()) return;
    completion(Result<AmazonLoginInfo>::failure(convertErrorType(*error)));
  };
  client_.authorizeUserForScopes(requestScopes_,
                                 std::make_shared<AmazonLoginServiceAuthDelegate>(std::move(onAuthorized),
                                                                                  std::move(onFailed)),
                                 options);
}

void AmazonLoginService::loginWithSandbox(bool sandbox, SandboxLoginCompletion completion) {
  if (!completion) return login(sandbox, nullptr);
  login(sandbox, [completion = std::move(completion)](Result<AmazonLoginInfo> result) {
    if (result.ok()) {
      completion(result.value().accessToken, result.value().email, std::nullopt);
    } else {
      completion(std::nullopt, std::nullopt, result.error());
    }
  });
}

void AmazonLoginService::logOut() { client_.clearAuthorizationState(nullptr); }

void AmazonLoginService::getAuthToken(const JsonObject& options, std::function<void(Result<std::string>)> completion) {
  const std::weak_ptr<AmazonLoginService> weak = weak_from_this();
  auto delegate = std::make_shared<AmazonLoginServiceGetAccessTokenDelegate>(
      [completion](std::string token) { completion(Result<std::string>::success(std::move(token))); },
      [weak, completion](std::optional<APIError> error) {
        if (!error || !weak.lock()) return;
        completion(Result<std::string>::failure(convertErrorType(*error)));
      });
  client_.getAccessTokenForScopes(requestScopes_, options, delegate);
}

void AmazonLoginService::getUserInfo(const JsonObject& options, std::function<void(Result<JsonObject>)> completion) {
  const std::weak_ptr<AmazonLoginService> weak = weak_from_this();
  auto delegate = std::make_shared<AmazonLoginServiceGetProfileDelegate>(
      [completion](JsonObject profile) { completion(Result<JsonObject>::success(std::move(profile))); },
      [weak, completion](std::optional<APIError> error) {
        if (!error || !weak.lock()) return;
        completion(Result<JsonObject>::failure(convertErrorType(*error)));
      });
  client_.getProfile(delegate, options);
}

}  // namespace applogic::signin
