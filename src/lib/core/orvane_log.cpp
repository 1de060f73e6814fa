#include "orvane_log.h"

namespace Vorna {
namespace Orvane {

const QLoggingCategory& orvane()
{
    static const QLoggingCategory category("Vorna.Orvane");
    return category;
}

} // namespace Orvane
} // namespace Vorna
