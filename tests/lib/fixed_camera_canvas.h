#pragma once

// The scene of the pixel tests: a canvas whose camera stands still at (0, 0, 5), looking down -z
// with a 30-degree vertical field, and the CPU side of the shading formulas to compare with.
#include "gl_test_support.h"

#include <QColor>
#include <QImage>
#include <QPoint>
#include <functional>
#include <memory>
#include <osg/Node>
#include <osg/Vec3>
#include <osg/Vec4>
#include <string>

namespace OrvaneTest {

constexpr double kFovY = 30.0;
constexpr double kEyeDistance = 5.0;
constexpr double kAspect = double(CanvasWindow::kCanvasWidth) / CanvasWindow::kHeight;

// A pixel of the canvas and the unit eye-space direction through its centre.
struct Probe {
    QPoint pixel;
    osg::Vec3 P;
};

// Where the world point (x, y, z) lands.
Probe probe(float x, float y, float z = 0.0f);

// A canvas under the fixed camera, with no manipulator to move it between frames.
class FixedCameraCanvas
{
public:
    bool show();
    // Shows the node alone in the model group and grabs the window after a few frames.
    QImage draw(osg::Node* node);
    bool onRenderThread(std::function<void(Vorna::Orvane::RenderInfo&)> body);
    CanvasWindow& window() { return *m_window; }
    void close() { m_window.reset(); }

private:
    std::unique_ptr<CanvasWindow> m_window;
};

osg::Vec3 reflect(const osg::Vec3& i, const osg::Vec3& n);
// (ambient, diffuse, specular) of one classic light.
osg::Vec3 dirLight(const osg::Vec3& L, const osg::Vec4& param, const osg::Vec3& N,
                   const osg::Vec3& P);
// The 8-bit colour a shading result lands as.
QColor toColor(const osg::Vec3& c);
std::string describe(const QColor& c);

} // namespace OrvaneTest
