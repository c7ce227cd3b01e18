#include "applogic/support/error.h"

namespace applogic {

std::ostream& operator<<(std::ostream& out, const Error& error) {
  out << error.domain << " (" << error.code << ")";
  if (!error.userInfo.empty()) {
    out << " {";
    const char* separator = "";
    for (const auto& [key, value] : error.userInfo) {
      out << separator << key << ": ";
      std::visit([&out](const auto& v) { out << v; }, value);
      separator = ", ";
    }
    out << "}";
  }
  return out;
}

}  // namespace applogic
