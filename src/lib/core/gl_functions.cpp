#include "gl_functions.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions_4_1_Core>

namespace Vorna {
namespace Orvane {

thread_local QOpenGLFunctions_4_1_Core* m_glFun = nullptr;

QOpenGLFunctions_4_1_Core* currentGlFunctions()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    auto* functions = context ? context->versionFunctions<QOpenGLFunctions_4_1_Core>() : nullptr;
    if (functions && !functions->initializeOpenGLFunctions())
        return nullptr;
    return functions;
}

} // namespace Orvane
} // namespace Vorna
