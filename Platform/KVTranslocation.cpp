#include "Platform/KVTranslocation.h"

namespace KVTranslocation {

bool isTranslocatedURL(const QUrl &, QUrl *)
{
    return false;
}

} // namespace KVTranslocation
