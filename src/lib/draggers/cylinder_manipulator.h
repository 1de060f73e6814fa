#pragma once

#include <QObject>
#include <QScopedPointer>
#include <osg/Node>
#include <osg/Vec3f>
#include <osg/Vec4f>

namespace osgViewer {
class View;
}

namespace Vorna {
namespace Orvane {

class CylinderManipulatorPrivate;

// A cylinder the user places and adjusts by handles: an arrow on the side changes the radius,
// one on the top the height, a ring turns the body about its middle and a press on the body
// moves it in the plane facing the viewer. `center` is the middle of the base; the body runs
// from there along `axis`. Render thread, as the scene it lives in.
class CylinderManipulator : public QObject
{
    Q_OBJECT
public:
    CylinderManipulator(osgViewer::View* view, const osg::Vec3f& center, const osg::Vec3f& axis,
                        float radius, float height, const osg::Vec4f& color);
    ~CylinderManipulator() override;

    void setColor(const osg::Vec4f& color) const;
    // The root that the client adds to the scene.
    osg::Node* getCylinderNode();
    // The present cylinder in world terms.
    void getCylinder(osg::Vec3f& center, osg::Vec3f& axis, float& radius, float& height);

    CylinderManipulatorPrivate* d() const { return m_d.data(); }

signals:
    void cylinderChanged();

private:
    QScopedPointer<CylinderManipulatorPrivate> m_d;
};

} // namespace Orvane
} // namespace Vorna
