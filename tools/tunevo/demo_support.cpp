#include "tunevo/demo_support.h"

#include <optional>
#include <ostream>
#include <string>
#include <variant>

#include <boost/json/parse.hpp>

#include "applogic/support/fatal.h"
#include "tunevo/demo_samples.h"

namespace tunevo {

applogic::Json sampleJson(std::string_view name) {
  const std::optional<std::string_view> text = demoSample(name);
  if (!text) applogic::fatalError("tunevo demo: no bundled sample named " + std::string(name));
  boost::system::error_code error;
  applogic::Json answer = boost::json::parse(*text, error);
  if (error) applogic::fatalError("tunevo demo: sample " + std::string(name) + " is not JSON: " + error.message());
  return answer;
}

applogic::testing::Answer sampleAnswer(std::string_view name) {
  return applogic::testing::Answer::json(sampleJson(name));
}

void printError(std::ostream& out, const applogic::Error& error) {
  out << "  error   domain \"" << error.domain << "\", code " << error.code << "\n";
  for (const auto& [key, value] : error.userInfo) {
    out << "          " << key << ": ";
    std::visit([&out](const auto& v) { out << v; }, value);
    out << "\n";
  }
}

}  // namespace tunevo
