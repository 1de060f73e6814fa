#pragma once

#include "drawselect.h"

#include <osg/Geometry>
#include <osg/Group>
#include <osg/MatrixTransform>

namespace Vorna {
namespace Orvane {

// A straight line from the press to the mouse with a dot at each end, drawn over the scene in
// the overlay. Render thread.
class DrawLine : public DrawObject
{
    Q_OBJECT
public:
    // cancelOnFinish: a finished line is taken down at once, as if canceled.
    explicit DrawLine(bool cancelOnFinish, osg::Group* parentGroup = nullptr,
                      QObject* parent = nullptr);

    osg::Vec3Array* getVertexArray() override;
    osg::Node* createDrawNode() override;
    osg::Vec2f getStartPoint() const;
    osg::Vec2f getEndPoint() const;
    bool startDotVisible() const { return m_startDot && m_startDot->getNodeMask() != 0; }
    bool endDotVisible() const { return m_endDot && m_endDot->getNodeMask() != 0; }
    void clearDrawLine();

signals:
    void signalDrawLineFinished(bool bFinished);

protected:
    void startImplementation(const osg::Vec2f& point) override;
    void updateImplementation(const osg::Vec2f& point) override;
    void cancelImplementation() override;
    void finishImplementation() override;
    void exitImplementation() override { finishImplementation(); }
    void switchColor() override;

private:
    unsigned int pointCount() const;

    bool m_cancelOnFinish;
    osg::ref_ptr<osg::Group> m_group;
    osg::ref_ptr<osg::Geometry> m_line;
    osg::ref_ptr<osg::Geometry> m_dot;
    osg::ref_ptr<osg::MatrixTransform> m_startDot;
    osg::ref_ptr<osg::MatrixTransform> m_endDot;
    bool m_hasStarted = false;
};

// The draw manipulator that owns one DrawLine. Without an overlay of the host's, it puts one
// of its own under the view's scene root when that root is a group.
class DrawLineHandler : public DrawManipulator
{
    Q_OBJECT
public:
    explicit DrawLineHandler(osgViewer::View* view, osg::Group* overlay = nullptr);
    DrawLine* drawLine() const { return static_cast<DrawLine*>(m_drawObject.data()); }
    osg::Group* overlay() const { return m_overlay.get(); }

private:
    osg::ref_ptr<osg::Group> m_overlay;
};

} // namespace Orvane
} // namespace Vorna
