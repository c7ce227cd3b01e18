#include "applogic/records/mo_prefix.h"

#include <algorithm>
#include <array>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>
#include <utf8proc.h>


namespace applogic {
namespace {

constexpr std::string_view kGenre = "g.";
constexpr std::string_view kArtist = "Art.";
constexpr std::string_view kAlbum = "Alb.";
constexpr std::string_view kEditorial = "po.";
constexpr std::string_view kProgrammedStation = "ps.";
constexpr std::string_view kPublishedPlaylist = "pp.";
constexpr std::string_view kMemberPlaylist = "mp.";
constexpr std::string_view kTrack = "Tra.";
constexpr std::string_view kVariousArtist = "Art.0";
constexpr std::string_view kTag = "tag.";

// No two of these overlap, so at most one matches; the order only decides how soon the search
// stops, and track ids, by far the most frequent, come first.
constexpr std::array kFixOrder = {kTrack,     kAlbum,              kArtist,
                                  kMemberPlaylist,    kPublishedPlaylist, kEditorial,
                                  kProgrammedStation, kGenre,             kTag};

constexpr utf8proc_int32_t kReplacementCharacter = 0xFFFD;

constexpr char asciiLower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

const std::string& MOPrefix::genre() {
  static const std::string value(kGenre);
  return value;
}
const std::string& MOPrefix::artist() {
  static const std::string value(kArtist);
  return value;
}
const std::string& MOPrefix::album() {
  static const std::string value(kAlbum);
  return value;
}
const std::string& MOPrefix::editorial() {
  static const std::string value(kEditorial);
  return value;
}
const std::string& MOPrefix::programmedStation() {
  static const std::string value(kProgrammedStation);
  return value;
}
const std::string& MOPrefix::publishedPlaylist() {
  static const std::string value(kPublishedPlaylist);
  return value;
}
const std::string& MOPrefix::memberPlaylist() {
  static const std::string value(kMemberPlaylist);
  return value;
}
const std::string& MOPrefix::track() {
  static const std::string value(kTrack);
  return value;
}
const std::string& MOPrefix::variousArtist() {
  static const std::string value(kVariousArtist);
  return value;
}
const std::string& MOPrefix::tag() {
  static const std::string value(kTag);
  return value;
}

bool MOPrefix::isTrackId(std::string_view id) noexcept { return beginsWith(id, kTrack); }
bool MOPrefix::isAlbumId(std::string_view id) noexcept { return beginsWith(id, kAlbum); }
bool MOPrefix::isArtistId(std::string_view id) noexcept { return beginsWith(id, kArtist); }
bool MOPrefix::isEditorialId(std::string_view id) noexcept { return beginsWith(id, kEditorial); }
bool MOPrefix::isStationId(std::string_view id) noexcept {
  return beginsWith(id, kProgrammedStation);
}
bool MOPrefix::isGenreId(std::string_view id) noexcept { return beginsWith(id, kGenre); }
bool MOPrefix::isTagId(std::string_view id) noexcept { return beginsWith(id, kTag); }
bool MOPrefix::isPlaylistId(std::string_view id) noexcept {
  return beginsWith(id, kMemberPlaylist) || beginsWith(id, kPublishedPlaylist);
}

std::string MOPrefix::fixId(std::string id) {
  const std::string_view prefix = matchingPrefix(id);
  // A match covers exactly the prefix's bytes (one ASCII byte per character), so the canonical
  // spelling overwrites them without changing the length.
  std::copy(prefix.begin(), prefix.end(), id.begin());
  return id;
}

std::optional<std::string> MOPrefix::fixOptionalId(std::optional<std::string> id) {
  if (id) *id = fixId(std::move(*id));
  return id;
}

std::vector<std::string> MOPrefix::fixIds(std::vector<std::string> ids) {
  for (std::string& id : ids) id = fixId(std::move(id));
  return ids;
}

JsonObject MOPrefix::fixPayloadId(JsonObject payload, std::string_view guidKey) {
  if (Json* member = payload.if_contains(guidKey)) {
    if (boost::json::string* text = member->if_string()) {
      const std::string_view prefix = matchingPrefix(*text);
      std::copy(prefix.begin(), prefix.end(), text->data());
    }
  }
  return payload;
}

std::optional<JsonObject> MOPrefix::fixOptionalPayloadId(std::optional<JsonObject> payload,
                                                         std::optional<std::string_view> guidKey) {
  if (!payload || !guidKey) return std::nullopt;
  return fixPayloadId(std::move(*payload), *guidKey);
}

JsonArray MOPrefix::fixPayloadIds(JsonArray payload, std::string_view guidKey) {
  auto kept = payload.begin();
  for (auto element = payload.begin(); element != payload.end(); ++element) {
    JsonObject* object = element->if_object();
    if (object == nullptr) continue;
    *object = fixPayloadId(std::move(*object), guidKey);
    // Same array, same memory resource: the move hands the object over without copying it.
    if (kept != element) *kept = std::move(*element);
    ++kept;
  }
  payload.erase(kept, payload.end());
  return payload;
}

std::optional<JsonArray> MOPrefix::fixOptionalPayloadIds(std::optional<JsonArray> payload,
                                                         std::optional<std::string_view> guidKey) {
  if (!payload || !guidKey) return std::nullopt;
  return fixPayloadIds(std::move(*payload), *guidKey);
}

std::size_t MOPrefix::createRange(std::string_view id, std::size_t prefixLength) noexcept {
  // Only beginsWith asks, and only when a non-ASCII character follows the prefix's bytes (ASCII
  // ids, by far the most frequent, are decided there without it).
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(id.data());
  utf8proc_int32_t state = 0;
  utf8proc_int32_t previous = 0;
  std::size_t started = 0;
  std::size_t position = 0;
  while (position < id.size()) {
    utf8proc_int32_t codepoint = kReplacementCharacter;
    auto length = utf8proc_iterate(bytes + position,
                                   static_cast<utf8proc_ssize_t>(id.size() - position), &codepoint);
    if (codepoint == -1) {  // utf8proc's mark for bytes that are not UTF-8
      // Invalid UTF-8 is read as one replacement character per byte, so that no id fails.
      codepoint = kReplacementCharacter;
      length = 1;
    }
    if (position == 0 || utf8proc_grapheme_break_stateful(previous, codepoint, &state)) {
      if (started == prefixLength) return position;
      ++started;
    }
    previous = codepoint;
    position += static_cast<std::size_t>(length);
  }
  return id.size();
}

std::string_view MOPrefix::matchingPrefix(std::string_view id) noexcept {
  if (id.empty()) return {};
  const char first = asciiLower(id.front());
  for (const std::string_view prefix : kFixOrder) {
    if (asciiLower(prefix.front()) == first && beginsWith(id, prefix)) return prefix;
  }
  return {};
}

bool MOPrefix::beginsWith(std::string_view id, std::string_view prefix) noexcept {
  // "Lower-cased id begins with the lower-cased prefix", exactly: every prefix character is an
  // ASCII letter or a dot, and the only non-ASCII characters whose lower case contains ASCII
  // letters are U+0130 ("i" + dot above) and U+212A ("k"), neither of which occurs in a prefix.
  // So the first characters match case-insensitively precisely when the first bytes match with
  // ASCII case folding and those bytes are whole characters; lower-casing never turns a
  // character after the prefix into one that joins the prefix's last character, so the cluster
  // boundary can be read on the id as it is.
  if (id.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (asciiLower(id[i]) != asciiLower(prefix[i])) return false;
  }
  // The matched bytes are the prefix's own letters and dot, never CR, so only the character
  // after them can join the last one, and an ASCII character never does. Only a non-ASCII
  // follower needs the cluster rules.
  if (id.size() == prefix.size() || static_cast<unsigned char>(id[prefix.size()]) < 0x80) return true;
  return createRange(id, prefix.size()) == prefix.size();
}

}  // namespace applogic
