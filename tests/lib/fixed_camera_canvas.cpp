#include "fixed_camera_canvas.h"

#include "canvas3d_item.h"
#include "canvas3d_view.h"
#include "render_info.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <osg/Camera>
#include <osgViewer/View>

using Vorna::Orvane::RenderInfo;
using Vorna::Orvane::ViewMgr;

namespace OrvaneTest {

Probe probe(float x, float y, float z)
{
    const double t = std::tan(osg::DegreesToRadians(kFovY / 2.0));
    const double depth = kEyeDistance - z;
    const double ndcX = x / (depth * t * kAspect);
    const double ndcY = y / (depth * t);
    const int px = int(std::floor((ndcX + 1.0) / 2.0 * CanvasWindow::kCanvasWidth));
    const int py = int(std::floor((1.0 - ndcY) / 2.0 * CanvasWindow::kHeight));
    const double cx = (px + 0.5) / CanvasWindow::kCanvasWidth * 2.0 - 1.0;
    const double cy = 1.0 - (py + 0.5) / CanvasWindow::kHeight * 2.0;
    osg::Vec3 dir(float(cx * t * kAspect), float(cy * t), -1.0f);
    dir.normalize();
    return {QPoint(px, py), dir};
}

bool FixedCameraCanvas::show()
{
    m_window.reset(new CanvasWindow);
    if (!m_window->show())
        return false;
    m_window->installFrameCounter();
    return m_window->run(nullptr, [](RenderInfo& info) {
        info.mainView()->setCameraManipulator(nullptr, false);
        osg::Camera* camera = info.masterCamera();
        camera->setViewMatrixAsLookAt(osg::Vec3d(0, 0, kEyeDistance), osg::Vec3d(),
                                      osg::Vec3d(0, 1, 0));
        camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
        camera->setProjectionMatrixAsPerspective(kFovY, kAspect, 1.0, 100.0);
    });
}

QImage FixedCameraCanvas::draw(osg::Node* node)
{
    osg::ref_ptr<osg::Node> held = node;
    EXPECT_TRUE(m_window->run(nullptr, [held](RenderInfo& info) {
        osg::Group* model = ViewMgr::getModel(info.mainView());
        model->removeChildren(0, model->getNumChildren());
        model->addChild(held.get());
    }));
    const int start = m_window->sceneFrames();
    EXPECT_TRUE(waitUntil([&] {
        m_window->item()->frame();
        return m_window->sceneFrames() >= start + 3;
    }));
    return m_window->grab();
}

bool FixedCameraCanvas::onRenderThread(std::function<void(RenderInfo&)> body)
{
    return m_window->run(nullptr, std::move(body));
}

osg::Vec3 reflect(const osg::Vec3& i, const osg::Vec3& n)
{
    return i - n * (2.0f * (n * i));
}

osg::Vec3 dirLight(const osg::Vec3& L, const osg::Vec4& param, const osg::Vec3& N,
                   const osg::Vec3& P)
{
    const float diff = std::max(L * N, 0.0f) * param.y();
    const float highlight =
        std::pow(std::max(-P * reflect(-L, N), 0.0f), std::max(1.0f, param.w())) * param.z();
    return osg::Vec3(param.x(), diff, highlight);
}

QColor toColor(const osg::Vec3& c)
{
    auto channel = [](float v) { return int(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); };
    return QColor(channel(c.x()), channel(c.y()), channel(c.z()));
}

std::string describe(const QColor& c)
{
    return "(" + std::to_string(c.red()) + ", " + std::to_string(c.green()) + ", " +
           std::to_string(c.blue()) + ")";
}

} // namespace OrvaneTest
