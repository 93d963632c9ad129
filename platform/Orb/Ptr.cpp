#include "Orb/Ptr.h"

namespace Orb {

bool PtrInterface::atomicCounts = false;

void threadSafePointersIs(bool on) { PtrInterface::atomicCounts = on; }

void PtrInterface::hasNotificationActiveIs(bool active) {
  references_ = active ? references_ | notificationActive : references_ & ~notificationActive;
}

void PtrInterface::zeroReferencesIs(bool zero) {
  if (!zero) return;
  reactorTeardown();
  delete this;
}

const Type& PtrInterface::fwkType() const { return registeredType<PtrInterface>; }

PtrInterface::~PtrInterface() = default;

void PtrInterface::reactorTeardown() {}

}  // namespace Orb
