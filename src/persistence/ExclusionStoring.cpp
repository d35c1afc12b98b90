// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/ExclusionStoring.h"

#include "persistence/PersistenceStoreError.h"

namespace orvane {

void ExclusionStoring::applyAtomicBatch(const AtomicStoreBatch&, SettingsStoring&, DeliveryStoring&)
{
    throw PersistenceStoreError(PersistenceStoreError::AtomicBatchUnsupported{});
}

} // namespace orvane
