#pragma once

#include <memory>
#include <utility>

#include "applogic/platform/media_player.h"

namespace tunevo {

// Keeps the player that the controller makes, so that the host can ask it for times (the
// controller keeps its player private).
class KeptPlayerFactory final : public applogic::platform::MediaPlayerFactory {
 public:
  explicit KeptPlayerFactory(std::shared_ptr<applogic::platform::MediaPlayerFactory> inner) : inner_(std::move(inner)) {}
  std::shared_ptr<applogic::platform::MediaPlayer> makePlayer() override { return player = inner_->makePlayer(); }
  std::shared_ptr<applogic::platform::MediaPlayerItem> makeItem(const applogic::Url& url) override {
    return inner_->makeItem(url);
  }
  std::shared_ptr<applogic::platform::MediaPlayer> player;

 private:
  std::shared_ptr<applogic::platform::MediaPlayerFactory> inner_;
};

}  // namespace tunevo
