#include "tunevo/demo_giphy.h"

#include <iomanip>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>


#include "applogic/controllers/giphy_data_controller.h"
#include "applogic/rx/rx.h"
#include "applogic/testing/scripted_giphy_service.h"
#include "tunevo/demo_support.h"

namespace tunevo {
namespace {

using applogic::Error;
using applogic::Giphy;
using applogic::Url;
using applogic::testing::Answer;

std::string lastCall(const applogic::testing::ScriptedGiphyService& service) {
  const auto calls = service.calls();
  std::string text = calls.back().operation + "(";
  for (std::size_t i = 0; i < calls.back().arguments.size(); ++i) {
    text += (i == 0 ? "" : ", ") + calls.back().arguments[i];
  }
  return text + ")";
}

const Giphy* findPicture(const std::vector<Giphy>& pictures, const std::string& id) {
  for (const Giphy& giphy : pictures) {
    if (giphy.id == id) return &giphy;
  }
  return nullptr;
}

class GiphyDemo {
 public:
  explicit GiphyDemo(std::ostream& out) : out_(out) {}

  void run() {
    out_ << "\n== GiphyDataController ==\n";
    trending();
    stillImageUrl("Zj5Wq2n7Lb3mTq", 300, "giphy_picture", "");
    stillImageUrl("Vq8Lm3Zc1Rk0Sy", 300, "giphy_portrait_still", ", whose only still frame is portrait");
  }

 private:
  void trending() {
    const applogic::Json answer = sampleJson("giphy_trending");
    service_->script("getTrending", Answer::json(answer));
    const auto unfiltered = applogic::GiphysResponseToGiphy(answer).value_or(std::vector<Giphy>());
    const auto pictures = controller_.getTrending();
    out_ << "\ngetTrending()\n  service is asked " << lastCall(*service_)
         << " and answers with giphy_trending.json: " << unfiltered.size() << " pictures\n"
         << "  -- renditions must be square to 7:3 landscape with a size and an address; a picture\n"
         << "     left without renditions is dropped\n";
    // The scripted answer arrives during `subscribe`, so `this` and `unfiltered` outlive it.
    pictures.subscribe(
        [this, &unfiltered](const std::vector<Giphy>& kept) {
          out_ << "  list of " << kept.size() << " pictures\n";
          // Walks the answer rather than the list, to show the pictures the filter dropped too.
          for (const Giphy& inAnswer : unfiltered) {
            if (const Giphy* giphy = findPicture(kept, inAnswer.id)) {
              print(*giphy, inAnswer.images.size());
            } else {
              out_ << "    (" << inAnswer.id << " dropped: none of its " << inAnswer.images.size()
                   << " renditions suits a cover)\n";
            }
          }
        },
        [this](const Error& error) { printError(out_, error); }, [this] { out_ << "  completed\n"; });
  }

  void print(const Giphy& giphy, std::size_t inAnswer) {
    out_ << "    " << giphy.id << "  rating "
         << (giphy.rating ? applogic::rawValue(*giphy.rating) : std::string_view("(none)")) << ", kept "
         << giphy.images.size() << " of " << inAnswer << " renditions\n";
    for (const auto& [key, info] : giphy.images) {
      const std::string size = std::to_string(static_cast<long>(info.width)) + "x" +
                               std::to_string(static_cast<long>(info.height));
      out_ << "      " << std::left << std::setw(20) << key << std::setw(9) << size << info.urlString << "\n";
    }
  }

  void stillImageUrl(const std::string& id, float width, std::string_view sample, std::string_view remark) {
    service_->script("get", Answer::json(sampleJson(sample)));
    out_ << "\ngetGiphySillImageUrl(\"" << id << "\", " << width << ")\n  service answers with " << sample
         << ".json" << remark << "\n";
    // The scripted answer settles the deferred before `done` is called, so `this` outlives it.
    controller_.getGiphySillImageUrl(id, width).done(
        [this](const Url& url) { out_ << "  resolved " << url << "\n"; },
        [this](const Error& error) {
          out_ << "  rejected\n";
          printError(out_, error);
        });
  }

  std::ostream& out_;
  std::shared_ptr<applogic::testing::ScriptedGiphyService> service_ =
      std::make_shared<applogic::testing::ScriptedGiphyService>();
  applogic::GiphyDataController controller_{service_};
};

}  // namespace

void showGiphy(std::ostream& out) { GiphyDemo(out).run(); }

}  // namespace tunevo
