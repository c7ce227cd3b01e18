#include "applogic/support/url.h"

#include <ostream>

#include <boost/url/parse.hpp>

namespace applogic {

std::optional<Url> Url::parse(std::string_view text) {
  // An empty reference is valid in RFC 3986 (it names the base document), but it names no
  // address of its own.
  if (text.empty() || !boost::urls::parse_uri_reference(text)) return std::nullopt;
  return Url(std::string(text));
}

std::ostream& operator<<(std::ostream& out, const Url& url) { return out << url.string(); }

}  // namespace applogic
