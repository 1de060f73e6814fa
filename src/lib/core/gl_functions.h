#pragma once

class QOpenGLFunctions_4_1_Core;

namespace Vorna {
namespace Orvane {

using QOpenGLFunc = QOpenGLFunctions_4_1_Core;

// Function table of the context that is current; refreshed at the start of every frame. One per
// thread: the QtQuick render thread and each offscreen canvas thread have a context of their own.
extern thread_local QOpenGLFunctions_4_1_Core* m_glFun;

// The one place that asks a context for its 4.1 table: nullptr without a current context or
// below 4.1.
QOpenGLFunctions_4_1_Core* currentGlFunctions();

} // namespace Orvane
} // namespace Vorna
