#include "applogic/version.h"

namespace applogic {

// The build passes the project's one version number in; it is never written here.
std::string_view libraryVersion() noexcept { return APPLOGIC_VERSION_STRING; }

}  // namespace applogic
