#include "velmor/SecretStore.h"

namespace velmor {

SecretStore::~SecretStore() = default;

}  // namespace velmor
