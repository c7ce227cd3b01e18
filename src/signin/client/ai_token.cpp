#include "applogic/signin/client/ai_token.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cmath>
#include <limits>

namespace applogic::signin {
namespace {

constexpr std::string_view kClassKey = "$class";
// A date beyond the limit cannot be a time point, so such an archive is corrupt.
constexpr auto kLatestSeconds = static_cast<double>(kAITokenDateLimitSeconds);

template <class T>
std::unique_ptr<AIToken> make() {
  return std::make_unique<T>();
}

struct ClassRow {
  std::string_view name;
  std::unique_ptr<AIToken> (*make)();
};

constexpr ClassRow kClasses[] = {
    {"AIToken", make<AIToken>},       {"AIAccessToken", make<AIAccessToken>}, {"AIRefreshToken", make<AIRefreshToken>},
    {"AICode", make<AICode>},         {"AIProfileData", make<AIProfileData>},
};

bool contains(const std::vector<std::string>& list, const std::string& value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

}  // namespace

AIToken::AIToken() = default;

AIToken::AIToken(std::optional<std::string> token, const platform::Clock& clock)
    : token_(std::move(token)), localTimeStamp_(clock.now()) {}

bool AIToken::isValid(const platform::Clock& /*clock*/) const { return token_.has_value(); }

bool AIToken::isEqual(const AIToken& other) const {
  return token_ == other.token_ && tokenType_ == other.tokenType_;
}

std::vector<std::uint8_t> AIToken::getValue() const {
  JsonObject archive;
  archive[kClassKey] = className();
  encode(archive);
  const std::string text = boost::json::serialize(archive);
  return std::vector<std::uint8_t>(text.begin(), text.end());
}

namespace {

// Whether every number in `value` can be written back: a number too large for a double (1e999)
// reads as infinity, which an archive cannot hold, so a token holding one could not be read again.
bool writableNumbers(const Json& value) {
  if (const double* number = value.if_double()) return std::isfinite(*number);
  if (const JsonObject* object = value.if_object()) {
    return std::all_of(object->begin(), object->end(), [](const auto& member) { return writableNumbers(member.value()); });
  }
  if (const JsonArray* array = value.if_array()) return std::all_of(array->begin(), array->end(), writableNumbers);
  return true;
}

}  // namespace

std::unique_ptr<AIToken> AIToken::unarchiveFromNSData(std::span<const std::uint8_t> data) {
  // Read exactly, so that the numbers of a stored profile come back as they were written.
  const auto parsed = json::parseExactly(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
  if (!parsed || !writableNumbers(*parsed)) return nullptr;
  const JsonObject* archive = parsed->if_object();
  if (archive == nullptr) return nullptr;
  const auto className = json::string(*archive, kClassKey);
  if (!className) return nullptr;
  const auto row = std::find_if(std::begin(kClasses), std::end(kClasses),
                                [&](const ClassRow& r) { return r.name == *className; });
  if (row == std::end(kClasses)) return nullptr;
  auto token = row->make();
  if (!token->decode(*archive)) return nullptr;
  return token;
}

void AIToken::encode(JsonObject& archive) const {
  encodeDate(archive, "localTimeStamp", localTimeStamp_);
  if (token_) archive["token"] = *token_;
  archive["tokenType"] = tokenType_;
}

bool AIToken::decode(const JsonObject& archive) {
  if (!decodeDate(archive, "localTimeStamp", localTimeStamp_)) return false;
  if (const Json* token = json::member(archive, "token"); token != nullptr && !token->is_null()) {
    const auto text = json::string(*token);
    if (!text) return false;
    token_ = std::string(*text);
  }
  if (const Json* type = json::member(archive, "tokenType"); type != nullptr && !type->is_null()) {
    const auto number = json::integer(*type);
    if (!number || *number < std::numeric_limits<std::int32_t>::min() ||
        *number > std::numeric_limits<std::int32_t>::max()) {
      return false;
    }
    tokenType_ = static_cast<std::int32_t>(*number);
  }
  return true;
}

void AIToken::encodeDate(JsonObject& archive, std::string_view key, const std::optional<TimePoint>& date) {
  // Microseconds first: their count is exact in a double, so one correctly rounded division gives
  // the double nearest to the date.
  if (date) {
    const auto micros = std::chrono::round<std::chrono::microseconds>(date->time_since_epoch()).count();
    archive[key] = static_cast<double>(micros) / 1e6;
  }
}

bool AIToken::decodeDate(const JsonObject& archive, std::string_view key, std::optional<TimePoint>& date) {
  const Json* value = json::member(archive, key);
  if (value == nullptr || value->is_null()) return true;
  double seconds = 0;
  if (const double* d = value->if_double()) {
    seconds = *d;
  } else if (const auto whole = json::integer(*value)) {
    seconds = static_cast<double>(*whole);
  } else {
    return false;
  }
  if (!std::isfinite(seconds) || std::fabs(seconds) > kLatestSeconds) return false;
  // The product is formed in extended precision so that rounding to the microsecond sees the
  // written double itself. Dates before 2106 are doubles to better than half a microsecond and
  // come back exactly; later ones may move by one microsecond once and then stay.
  const long double micros = static_cast<long double>(seconds) * 1e6L;
  date = TimePoint(std::chrono::microseconds(std::llroundl(micros)));
  return true;
}

void AIToken::encodeScopes(JsonObject& archive, const std::vector<std::string>& scopes) {
  JsonArray list;
  for (const auto& scope : scopes) list.emplace_back(scope);
  archive["scopes"] = std::move(list);
}

bool AIToken::decodeScopes(const JsonObject& archive, std::vector<std::string>& scopes) {
  const Json* value = json::member(archive, "scopes");
  if (value == nullptr || value->is_null()) return true;
  const JsonArray* list = value->if_array();
  if (list == nullptr) return false;
  scopes.clear();
  for (const Json& entry : *list) {
    const auto scope = json::string(entry);
    if (!scope) return false;
    scopes.emplace_back(*scope);
  }
  return true;
}

bool AIToken::scopedEqual(const AIToken& other) const {
  if (!AIToken::isEqual(other)) return false;
  static const std::vector<std::string> kNone;
  const auto& mine = *scopeList();
  const auto* theirsOrNull = other.scopeList();
  const auto& theirs = theirsOrNull ? *theirsOrNull : kNone;
  return mine.size() == theirs.size() &&
         std::all_of(mine.begin(), mine.end(), [&](const std::string& s) { return contains(theirs, s); });
}

bool AIToken::holdsScopes(const std::vector<std::string>& requested) const {
  const auto* mine = scopeList();
  return std::all_of(requested.begin(), requested.end(),
                     [&](const std::string& s) { return mine != nullptr && contains(*mine, s); });
}

AIAccessToken::AIAccessToken(std::optional<std::string> token, std::optional<TimePoint> expirationDate,
                             const platform::Clock& clock)
    : AIAccessToken(std::move(token), {}, expirationDate, clock) {}

AIAccessToken::AIAccessToken(std::optional<std::string> token, std::vector<std::string> scopes,
                             std::optional<TimePoint> expirationDate, const platform::Clock& clock)
    : AIToken(std::move(token), clock), expirationDate_(expirationDate), scopes_(std::move(scopes)) {
  setTokenType(kTokenTypeAccessToken);
}

bool AIAccessToken::isValid(const platform::Clock& clock) const {
  return token().has_value() && expirationDate_ && *expirationDate_ > clock.now();
}

bool AIAccessToken::isValidForScopes(const std::vector<std::string>& requested, const platform::Clock& clock) const {
  return isValid(clock) && holdsScopes(requested);
}

void AIAccessToken::encode(JsonObject& archive) const {
  AIToken::encode(archive);
  encodeDate(archive, "expirationDate", expirationDate_);
  encodeScopes(archive, scopes_);
}

bool AIAccessToken::decode(const JsonObject& archive) {
  return AIToken::decode(archive) && decodeDate(archive, "expirationDate", expirationDate_) &&
         decodeScopes(archive, scopes_);
}

AIRefreshToken::AIRefreshToken(std::optional<std::string> token, const platform::Clock& clock)
    : AIRefreshToken(std::move(token), {}, clock) {}

AIRefreshToken::AIRefreshToken(std::optional<std::string> token, std::vector<std::string> scopes,
                               const platform::Clock& clock)
    : AIToken(std::move(token), clock), scopes_(std::move(scopes)) {
  setTokenType(kTokenTypeRefreshToken);
}

bool AIRefreshToken::isValidForScopes(const std::vector<std::string>& requested, const platform::Clock& clock) const {
  return isValid(clock) && holdsScopes(requested);
}

void AIRefreshToken::encode(JsonObject& archive) const {
  AIToken::encode(archive);
  encodeScopes(archive, scopes_);
}

bool AIRefreshToken::decode(const JsonObject& archive) {
  return AIToken::decode(archive) && decodeScopes(archive, scopes_);
}

AICode::AICode(std::optional<std::string> token, const platform::Clock& clock) : AIToken(std::move(token), clock) {
  setTokenType(kTokenTypeCode);
}

AIProfileData::AIProfileData(std::optional<JsonObject> profileData, const platform::Clock& clock)
    : AIToken(std::nullopt, clock), profileData_(std::move(profileData)) {
  setTokenType(kTokenTypeProfileData);
  expirationDate_ = *localTimeStamp() + kLifetime;
}

bool AIProfileData::isValid(const platform::Clock& clock) const {
  return profileData_.has_value() && expirationDate_ && *expirationDate_ > clock.now();
}

void AIProfileData::encode(JsonObject& archive) const {
  encodeDate(archive, "expirationDate", expirationDate_);
  if (profileData_) archive["profile"] = *profileData_;
}

bool AIProfileData::decode(const JsonObject& archive) {
  if (!decodeDate(archive, "expirationDate", expirationDate_)) return false;
  const Json* profile = json::member(archive, "profile");
  if (profile == nullptr || profile->is_null()) return true;
  const JsonObject* dictionary = profile->if_object();
  if (dictionary == nullptr) return false;
  profileData_ = *dictionary;
  return true;
}

}  // namespace applogic::signin
