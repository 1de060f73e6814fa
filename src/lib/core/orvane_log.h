#pragma once

#include <QLoggingCategory>

namespace Vorna {
namespace Orvane {

// The library's one logging category, "Vorna.Orvane"; use it through qCDebug(orvane) etc.
const QLoggingCategory& orvane();

} // namespace Orvane
} // namespace Vorna
