// A lasso drawn over a rendered cloud, its mask, and the selection it makes, on a live canvas:
// through the surface it takes exactly the points whose pixel lies inside the lasso; visible
// only, it leaves the points behind a wall alone.
#include "canvas3d_drawable.h"
#include "canvas3d_view.h"
#include "depth_callbacks.h"
#include "drawselect.h"
#include "figure_mask.h"
#include "gl_test_support.h"
#include "metal_select.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "render_info.h"
#include "selectDepthCallback.h"

#include <gtest/gtest.h>
#include <osg/Geometry>
#include <osg/Program>

#include <cmath>
#include <future>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;

namespace {

const char* const kVertex = R"(#version 410 core
uniform mat4 osg_ModelViewProjectionMatrix;
layout(location = 0) in vec3 vPosition;
void main() { gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0); }
)";
const char* const kFragment = R"(#version 410 core
out vec4 color;
void main() { color = vec4(0.9, 0.6, 0.2, 1.0); }
)";

osg::Program* plainProgram()
{
    auto* program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, kVertex));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, kFragment));
    return program;
}

osg::Geometry* geometryOf(osg::Vec3Array* v, GLenum mode)
{
    auto* g = new osg::Geometry;
    g->setUseDisplayList(false);
    g->setUseVertexBufferObjects(true);
    g->setUseVertexArrayObject(true);
    g->setVertexArray(v);
    g->setVertexAttribArray(0, v, osg::Array::BIND_PER_VERTEX);
    g->addPrimitiveSet(new osg::DrawArrays(mode, 0, static_cast<GLsizei>(v->size())));
    g->getOrCreateStateSet()->setAttributeAndModes(plainProgram());
    return g;
}

// A grid of points in z = 0 wider than the view.
osg::Vec3Array* cloud()
{
    auto* v = new osg::Vec3Array;
    for (int j = 0; j < 45; ++j)
        for (int i = 0; i < 61; ++i)
            v->push_back(osg::Vec3(-1.8f + 0.06f * i + 0.013f * (j % 3),
                                   -1.32f + 0.06f * j + 0.011f * (i % 4), 0.0f));
    return v;
}

// A wall in z = 1 over the right part of the view.
constexpr float kWallLeft = 0.2f;
osg::Vec3Array* wall()
{
    auto* v = new osg::Vec3Array;
    for (const osg::Vec3& p :
         {osg::Vec3(kWallLeft, -3, 1), osg::Vec3(3, -3, 1), osg::Vec3(3, 3, 1),
          osg::Vec3(kWallLeft, -3, 1), osg::Vec3(3, 3, 1), osg::Vec3(kWallLeft, 3, 1)})
        v->push_back(p);
    return v;
}

bool insidePolygon(const std::vector<osg::Vec2d>& p, double x, double y)
{
    bool inside = false;
    for (std::size_t k = 0; k < p.size(); ++k) {
        const osg::Vec2d& a = p[k];
        const osg::Vec2d& b = p[(k + 1) % p.size()];
        if ((a.y() > y) != (b.y() > y) &&
            x < a.x() + (y - a.y()) * (b.x() - a.x()) / (b.y() - a.y()))
            inside = !inside;
    }
    return inside;
}

class DrawSelectTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(w.show());
        ASSERT_TRUE(w.run(OrvaneSingleton::instance()->addGroup(new osg::Group)));
        points = cloud();
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            osg::Group* model = ViewMgr::getModel(info.mainView());
            model->addChild(geometryOf(points.get(), GL_POINTS));
            model->addChild(geometryOf(wall(), GL_TRIANGLES));
            if (auto* depth = findPostDrawCallback<SelectDepthCallback>(info.masterCamera()))
                depth->setIsReadDepth(true);
        }));
        ASSERT_TRUE(w.lookAt(osg::Vec3d(0, 0, 5), osg::Vec3d(), osg::Vec3d(0, 1, 0)));
        ASSERT_TRUE(w.run(nullptr));
        select.init();
    }

    // Draws the lasso with the draw tool on the render thread and selects with its mask.
    std::vector<signed char> selectWithLasso(const std::vector<osg::Vec2d>& lasso, bool through,
                                             osg::Matrixd& toWindow, bool& haveDepth)
    {
        std::vector<signed char> result;
        w.run(nullptr, [&](RenderInfo& info) {
            osg::Camera* camera = info.masterCamera();
            const osg::Viewport* vp = camera->getViewport();
            const osg::Vec4i viewport(vp->x(), vp->y(), vp->width(), vp->height());
            toWindow =
                camera->getViewMatrix() * camera->getProjectionMatrix() * vp->computeWindowMatrix();

            osg::ref_ptr<osg::Group> overlay = new osg::Group;
            DrawLasso figure(overlay.get());
            std::vector<unsigned char> mask;
            QObject::connect(&figure, &DrawObject::finished,
                             [&] { FigureMask::fromDrawObject(&figure, viewport, mask); });
            figure.startDraw(osg::Vec2f(lasso[0].x(), lasso[0].y()));
            for (std::size_t k = 1; k < lasso.size(); ++k)
                figure.updateDraw(osg::Vec2f(lasso[k].x(), lasso[k].y()));
            figure.finishDraw();

            osg::ref_ptr<osg::FloatArray> depth;
            auto* depthCallback = findPostDrawCallback<SelectDepthCallback>(camera);
            osg::Image* image = depthCallback ? depthCallback->getDepth() : nullptr;
            haveDepth = image && image->s() == viewport.z() && image->t() == viewport.w();
            if (haveDepth) {
                const auto* d = reinterpret_cast<const float*>(image->data());
                depth = new osg::FloatArray(d, d + std::size_t(viewport.z()) * viewport.w());
            }
            osg::ref_ptr<osg::ByteArray> zeros = new osg::ByteArray(points->size());
            osg::ref_ptr<osg::ByteArray> current = new osg::ByteArray(points->size());
            osg::ref_ptr<osg::ByteArray> initial = new osg::ByteArray(points->size());
            SelectParam param;
            param.isThrough = through;
            param.positions = points.get();
            param.selectState = zeros.get();
            param.initialState = initial.get();
            param.currentState = current.get();
            param.selectArea = mask.data();
            param.depth = depth.get();
            param.matModelView = osg::Matrixf(camera->getViewMatrix());
            param.matProj = osg::Matrixf(camera->getProjectionMatrix());
            param.matModelViewProj =
                osg::Matrixf(camera->getViewMatrix() * camera->getProjectionMatrix());
            param.viewport = viewport;
            param.vertexCount = static_cast<std::uint32_t>(points->size());
            param.dataType = 2;
            if (mask.size() != std::size_t(viewport.z()) * viewport.w() || (!through && !haveDepth))
                return;
            std::promise<std::vector<signed char>> promise;
            std::future<std::vector<signed char>> done = promise.get_future();
            select.SelectProcess(param, [&](osg::ByteArray* states) {
                promise.set_value(std::vector<signed char>(states->begin(), states->end()));
            });
            result = done.get();
        });
        return result;
    }

    CanvasWindow w;
    osg::ref_ptr<osg::Vec3Array> points;
    MetalSelect select;
};

// A hand-drawn-like loop over the left half of the 160 x 120 canvas, reaching past the wall's
// edge.
std::vector<osg::Vec2d> leftHalfLasso()
{
    std::vector<osg::Vec2d> lasso;
    for (int k = 0; k < 90; ++k) {
        const double a = 2.0 * M_PI * k / 90;
        const double r = 1.0 + 0.12 * std::sin(5 * a);
        lasso.emplace_back(70.0 + 55.0 * r * std::cos(a), 60.0 + 45.0 * r * std::sin(a));
    }
    return lasso;
}

TEST_F(DrawSelectTest, ThroughTakesExactlyThePointsWhosePixelIsInsideTheLasso)
{
    const std::vector<osg::Vec2d> lasso = leftHalfLasso();
    osg::Matrixd toWindow;
    bool haveDepth = false;
    const std::vector<signed char> states = selectWithLasso(lasso, true, toWindow, haveDepth);
    ASSERT_EQ(states.size(), points->size());
    int selected = 0;
    int checked = 0;
    for (std::size_t i = 0; i < points->size(); ++i) {
        const osg::Vec3d win = osg::Vec3d((*points)[i]) * toWindow;
        // A projection within a hair of a pixel border may land either side in float.
        const double fx = win.x() - std::floor(win.x());
        const double fy = win.y() - std::floor(win.y());
        if (fx < 1e-3 || fx > 1 - 1e-3 || fy < 1e-3 || fy > 1 - 1e-3)
            continue;
        const bool onCanvas = win.x() >= 0 && win.x() < CanvasWindow::kCanvasWidth &&
                              win.y() >= 0 && win.y() < CanvasWindow::kHeight;
        const bool want =
            onCanvas && insidePolygon(lasso, std::floor(win.x()) + 0.5, std::floor(win.y()) + 0.5);
        EXPECT_EQ(states[i], want ? 1 : 0) << "point " << i << " at " << win.x() << ", " << win.y();
        selected += want;
        ++checked;
    }
    EXPECT_GT(selected, 300);
    EXPECT_GT(checked, int(points->size()) * 9 / 10);
}

TEST_F(DrawSelectTest, VisibleOnlyLeavesThePointsBehindTheWallAlone)
{
    const std::vector<osg::Vec2d> lasso = leftHalfLasso();
    osg::Matrixd toWindow;
    bool haveDepth = false;
    const std::vector<signed char> states = selectWithLasso(lasso, false, toWindow, haveDepth);
    ASSERT_TRUE(haveDepth) << "the camera reads the depth for selections";
    ASSERT_EQ(states.size(), points->size());
    // Where the wall's left edge lands on the canvas.
    const double wallEdge = (osg::Vec3d(kWallLeft, 0, 1) * toWindow).x();
    int behind = 0;
    int visible = 0;
    for (std::size_t i = 0; i < points->size(); ++i) {
        const osg::Vec3d win = osg::Vec3d((*points)[i]) * toWindow;
        const double fx = win.x() - std::floor(win.x());
        const double fy = win.y() - std::floor(win.y());
        if (fx < 1e-3 || fx > 1 - 1e-3 || fy < 1e-3 || fy > 1 - 1e-3)
            continue;
        // The depth test looks one pixel around; keep clear of the wall's edge.
        if (std::fabs(win.x() - wallEdge) < 3.0)
            continue;
        const bool onCanvas = win.x() >= 0 && win.x() < CanvasWindow::kCanvasWidth &&
                              win.y() >= 0 && win.y() < CanvasWindow::kHeight;
        const bool inLasso =
            onCanvas && insidePolygon(lasso, std::floor(win.x()) + 0.5, std::floor(win.y()) + 0.5);
        const bool hidden = win.x() > wallEdge;
        EXPECT_EQ(states[i], inLasso && !hidden ? 1 : 0) << "point " << i;
        behind += inLasso && hidden;
        visible += inLasso && !hidden;
    }
    EXPECT_GT(behind, 50) << "the lasso reaches behind the wall";
    EXPECT_GT(visible, 100);
}

} // namespace
