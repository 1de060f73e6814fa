#pragma once

// A bare OpenGL context on an offscreen surface, current for the test's lifetime: for code that
// reads back whatever the test has bound, with no scene graph around it.
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions_4_1_Core>
#include <gtest/gtest.h>
#include <memory>

namespace OrvaneTest {

class GLContextTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QSurfaceFormat format;
        // The canvases ask for this too: Debian's OSG is a compatibility build.
        format.setProfile(QSurfaceFormat::CompatibilityProfile);
        format.setVersion(4, 1);
        m_surface = std::make_unique<QOffscreenSurface>();
        m_surface->setFormat(format);
        m_surface->create();
        m_context = std::make_unique<QOpenGLContext>();
        m_context->setFormat(format);
        ASSERT_TRUE(m_context->create());
        ASSERT_TRUE(m_context->makeCurrent(m_surface.get()));
        gl = m_context->versionFunctions<QOpenGLFunctions_4_1_Core>();
        ASSERT_NE(gl, nullptr);
        ASSERT_TRUE(gl->initializeOpenGLFunctions());
    }

    void TearDown() override
    {
        if (m_context)
            m_context->doneCurrent();
    }

    QOpenGLFunctions_4_1_Core* gl = nullptr;

private:
    std::unique_ptr<QOffscreenSurface> m_surface;
    std::unique_ptr<QOpenGLContext> m_context;
};

} // namespace OrvaneTest
