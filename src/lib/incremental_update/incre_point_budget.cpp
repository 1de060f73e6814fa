// The point budget: a thinned cloud while things move, the whole of it once they stop.
#include "incre_point_geomtry_apple.h"

#include "canvas_base.h"
#include "render_info.h"

#include <QPointer>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <vector>

namespace Vorna {
namespace Orvane {

namespace {

#ifndef GL_MAX_VERTEX_ATTRIB_STRIDE
#define GL_MAX_VERTEX_ATTRIB_STRIDE 0x82E5
#endif

qint64 steadyMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

void IncrePointGeometryApple::setPointBudget(uint32_t points, int settleMs)
{
    m_settleMs = std::max(settleMs, 1);
    m_pointBudget = points;
}

uint32_t IncrePointGeometryApple::budgetStride(osg::RenderInfo& renderInfo, uint64_t count)
{
    const uint32_t whole = m_wholeSize;
    const bool changed = m_patchesThisFrame || whole != m_lastWholeSize ||
                         m_frameViewProjection != m_lastViewProjection;
    m_patchesThisFrame = false;
    m_lastWholeSize = whole;
    m_lastViewProjection = m_frameViewProjection;
    if (changed || !m_sinceChange.isValid())
        m_sinceChange.start();
    const uint32_t budget = m_pointBudget;
    if (budget == 0 || count <= budget)
        return 1;
    const qint64 quiet = m_sinceChange.elapsed(), settle = m_settleMs;
    if (!changed && quiet >= settle)
        return 1;
    requestFrameAfter(renderInfo, settle - quiet);
    // The smallest stride that keeps the count within the budget.
    return static_cast<uint32_t>((count + budget - 1) / budget);
}

void IncrePointGeometryApple::drawThinned(uint32_t count, uint32_t stride)
{
    const uint32_t drawn = static_cast<uint32_t>((uint64_t(count) + stride - 1) / stride);
    if (m_maxAttribStride == 0) {
        // Asked for since GL 4.4; 2048 is the least that version promises.
        m_gl->glGetIntegerv(GL_MAX_VERTEX_ATTRIB_STRIDE, &m_maxAttribStride);
        if (m_gl->glGetError() != GL_NO_ERROR || m_maxAttribStride <= 0)
            m_maxAttribStride = 2048;
    }
    // Strided reads cost a software rasteriser less than an index a point.
    if (uint64_t(m_drawStep) * 12 * stride <= uint64_t(m_maxAttribStride)) {
        const bool fresh = !m_budgetVao;
        if (fresh)
            m_gl->glGenVertexArrays(1, &m_budgetVao);
        if (fresh || m_budgetVaoStride != stride) {
            bindWholeAttributes(m_budgetVao, stride);
            m_budgetVaoStride = stride;
        }
        m_gl->glBindVertexArray(m_budgetVao);
        m_gl->glDrawArrays(GL_POINTS, 0, static_cast<GLsizei>(drawn));
        return;
    }
    if (!m_budgetIndexBuffer)
        m_gl->glGenBuffers(1, &m_budgetIndexBuffer);
    // The element binding belongs to the bound vertex array object.
    m_gl->glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_budgetIndexBuffer);
    if (drawn != m_budgetIndexCount || stride != m_budgetIndexStride) {
        std::vector<GLuint> indices(drawn);
        for (uint32_t i = 0; i < drawn; ++i)
            indices[i] = i * stride;
        m_gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER,
                           static_cast<GLsizeiptr>(indices.size() * sizeof(GLuint)), indices.data(),
                           GL_DYNAMIC_DRAW);
        m_budgetIndexCount = drawn;
        m_budgetIndexStride = stride;
    }
    m_gl->glDrawElements(GL_POINTS, static_cast<GLsizei>(drawn), GL_UNSIGNED_INT, nullptr);
}

void IncrePointGeometryApple::requestFrameAfter(osg::RenderInfo& renderInfo, qint64 delayMs)
{
    RenderInfo* info = renderInfoOf(renderInfo);
    if (!info || !info->canvas)
        return;
    const qint64 delay = std::max<qint64>(delayMs, 1);
    const qint64 due = steadyMs() + delay;
    // A wake-up already due by then serves; a later one (armed under a longer settle time)
    // must not hold the full frame back, so an earlier one replaces it.
    qint64 armed = m_wakeDue->load();
    do {
        if (armed != 0 && armed <= due)
            return;
    } while (!m_wakeDue->compare_exchange_weak(armed, due));
    QPointer<CanvasBase> canvas = info->canvas.get();
    std::shared_ptr<std::atomic<qint64>> wakeDue = m_wakeDue;
    // The timer lives on the canvas's thread, which runs an event loop; the render thread may
    // be busy drawing when it fires.
    QMetaObject::invokeMethod(
        canvas.data(),
        [canvas, wakeDue, due, delay] {
            if (!canvas)
                return;
            QTimer::singleShot(static_cast<int>(delay), canvas.data(), [canvas, wakeDue, due] {
                qint64 expected = due;
                // Replaced by an earlier wake-up, which has asked or will ask for the frame.
                if (!wakeDue->compare_exchange_strong(expected, 0))
                    return;
                if (canvas)
                    canvas->frame();
            });
        },
        Qt::QueuedConnection);
}

} // namespace Orvane
} // namespace Vorna
