#include "applogic/foundation/zds_deferred_util.h"

namespace applogic {

Error ZDSDeferredUtil::noValueError() { return Error{"ZDSDeferredUtil", 1, {}}; }

}  // namespace applogic
