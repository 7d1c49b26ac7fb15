#include <tessel/foundation/ClassRef.h>

namespace Tessel {

IUnknownBase::~IUnknownBase() = default;

}  // namespace Tessel
