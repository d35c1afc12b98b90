// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/DecodedRemoteCalendarIdentifier.h"

namespace orvane {

std::size_t hash(const DecodedRemoteCalendarIdentifier& value)
{
    return hashFields(value.accountID, value.providerCalendarIdentifier);
}

} // namespace orvane
