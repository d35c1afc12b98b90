// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/ProviderAccountKey.h"

namespace orvane {

std::size_t hash(const ProviderAccountKey& value)
{
    return hashFields(value.provider, value.providerAccountIdentifier, value.tenantIdentifier);
}

} // namespace orvane
