#include "applogic/testing/scripted_playlists_service.h"

#include <charconv>
#include <utility>

namespace applogic::testing {
namespace {

std::string queueArgument(const std::optional<SerialQueue>& queue) { return queue ? queue->label() : "none"; }

std::string shortest(float value) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string sizeArgument(const std::optional<Size>& size) {
  return size ? shortest(size->width) + "x" + shortest(size->height) : "none";
}

std::string listArgument(const std::vector<std::string>& items) {
  std::string text = "[";
  for (std::size_t i = 0; i < items.size(); ++i) text += (i == 0 ? "" : ", ") + items[i];
  return text + "]";
}

std::string bytesArgument(const std::vector<std::uint8_t>& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

rx::Observable<Unit> asUnits(const rx::Observable<Json>& answers) {
  return answers.map([](const Json&) { return unit; });
}

}  // namespace

ScriptedPlaylistsService::ScriptedPlaylistsService()
    : ScriptedService({"get", "getPlaylistTracks", "getImages", "updatePlaylistGif", "deletePlaylistGif",
                       "uploadPlaylistImage", "getRecommendedTracks", "rejectRecommendedTracks", "addTracks",
                       "setTracks"}),
      defaultQueue_("ScriptedPlaylistsService.default") {}

rx::Observable<Json> ScriptedPlaylistsService::get(const std::string& playlistId,
                                                   std::optional<SerialQueue> serialQueue) {
  return request("get", {playlistId, queueArgument(serialQueue)});
}

rx::Observable<Json> ScriptedPlaylistsService::getPlaylistTracks(const std::string& playlistID, int limit, int offset,
                                                                 std::optional<SerialQueue> serialQueue) {
  return request("getPlaylistTracks",
                 {playlistID, std::to_string(limit), std::to_string(offset), queueArgument(serialQueue)});
}

rx::Observable<Json> ScriptedPlaylistsService::getImages(const std::string& playlistID, std::optional<Size> size) {
  return request("getImages", {playlistID, sizeArgument(size)});
}

rx::Observable<Json> ScriptedPlaylistsService::updatePlaylistGif(const std::string& playlistID,
                                                                 const std::string& gifID) {
  return request("updatePlaylistGif", {playlistID, gifID});
}

rx::Observable<Json> ScriptedPlaylistsService::deletePlaylistGif(const std::string& playlistID) {
  return request("deletePlaylistGif", {playlistID});
}

rx::Observable<Unit> ScriptedPlaylistsService::uploadPlaylistImage(const std::string& playlistID,
                                                                   std::vector<std::uint8_t> data) {
  return asUnits(request("uploadPlaylistImage", {playlistID, bytesArgument(data)}));
}

rx::Observable<Json> ScriptedPlaylistsService::getRecommendedTracks(const std::string& playlistID,
                                                                    std::optional<SerialQueue> serialQueue) {
  return request("getRecommendedTracks", {playlistID, queueArgument(serialQueue)});
}

rx::Observable<Json> ScriptedPlaylistsService::rejectRecommendedTracks(const std::vector<std::string>& trackIDs,
                                                                       std::optional<SerialQueue> serialQueue) {
  return request("rejectRecommendedTracks", {listArgument(trackIDs), queueArgument(serialQueue)});
}

rx::Observable<Unit> ScriptedPlaylistsService::addTracks(const std::string& playlistID,
                                                         const std::vector<std::string>& trackIDs,
                                                         std::optional<SerialQueue> serialQueue) {
  return asUnits(request("addTracks", {playlistID, listArgument(trackIDs), queueArgument(serialQueue)}));
}

rx::Observable<Unit> ScriptedPlaylistsService::setTracks(const std::string& playlistID,
                                                         const std::vector<std::string>& trackIDs,
                                                         std::optional<SerialQueue> serialQueue) {
  return asUnits(request("setTracks", {playlistID, listArgument(trackIDs), queueArgument(serialQueue)}));
}

}  // namespace applogic::testing
