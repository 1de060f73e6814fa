#include "drawline.h"

#include "line_geom_maker.h"
#include "maker_geometry.h"
#include "sphere_geom_maker.h"

#include <osg/Depth>
#include <osg/Geode>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

namespace {

// Drawn over everything: the line is a measure on the image, not a part of the scene.
void drawOnTop(osg::StateSet* ss)
{
    ss->setAttributeAndModes(new osg::Depth(osg::Depth::ALWAYS, 0.0, 1.0, false));
}

} // namespace

DrawLine::DrawLine(bool cancelOnFinish, osg::Group* parentGroup, QObject* parent)
    : DrawObject(parentGroup, parent), m_cancelOnFinish(cancelOnFinish)
{
}

osg::Node* DrawLine::createDrawNode()
{
    m_group = new osg::Group;

    m_line = LineGeomMaker::createLineGeometry(false);
    LineGeomMaker::setWidth(m_line.get(), 2.0f);
    LineGeomMaker::setSmooth(m_line.get(), true);
    MakerGeometry::setOverallColor(m_line.get(), currentColor());
    m_line->setCullingActive(false);
    auto* lineGeode = new osg::Geode;
    lineGeode->addDrawable(m_line.get());
    lineGeode->setCullingActive(false);
    osg::StateSet* lineState = lineGeode->getOrCreateStateSet();
    lineState->setMode(GL_BLEND, osg::StateAttribute::ON);
    drawOnTop(lineState);
    m_group->addChild(lineGeode);

    m_dot = SphereGeomMaker::createSphereGeometry(osg::Vec3f(), 1.0f);
    SphereGeomMaker::setColor(m_dot.get(), currentColor());
    m_dot->setCullingActive(false);
    auto* dotGeode = new osg::Geode;
    dotGeode->addDrawable(m_dot.get());
    dotGeode->setCullingActive(false);
    osg::StateSet* dotState = dotGeode->getOrCreateStateSet();
    dotState->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    drawOnTop(dotState);

    m_startDot = new osg::MatrixTransform(osg::Matrixd::scale(3.0, 3.0, 3.0));
    m_endDot = new osg::MatrixTransform(osg::Matrixd::scale(3.0, 3.0, 3.0));
    m_startDot->addChild(dotGeode);
    m_endDot->addChild(dotGeode);
    m_startDot->setNodeMask(0);
    m_endDot->setNodeMask(0);
    m_group->addChild(m_startDot.get());
    m_group->addChild(m_endDot.get());
    return m_group.get();
}

osg::Vec3Array* DrawLine::getVertexArray()
{
    return m_line ? dynamic_cast<osg::Vec3Array*>(m_line->getVertexArray()) : nullptr;
}

unsigned int DrawLine::pointCount() const
{
    auto* vertices = m_line ? dynamic_cast<osg::Vec3Array*>(m_line->getVertexArray()) : nullptr;
    return vertices ? vertices->size() : 0;
}

osg::Vec2f DrawLine::getStartPoint() const
{
    if (!m_startDot)
        return osg::Vec2f();
    const osg::Vec3d t = m_startDot->getMatrix().getTrans();
    return osg::Vec2f(static_cast<float>(t.x()), static_cast<float>(t.y()));
}

osg::Vec2f DrawLine::getEndPoint() const
{
    if (!m_endDot)
        return osg::Vec2f();
    const osg::Vec3d t = m_endDot->getMatrix().getTrans();
    return osg::Vec2f(static_cast<float>(t.x()), static_cast<float>(t.y()));
}

void DrawLine::startImplementation(const osg::Vec2f& point)
{
    if (m_drawNodes.empty())
        addDrawNodeToScene();
    else
        LineGeomMaker::clearLinePoint(m_line.get());
    m_startDot->setNodeMask(1);
    m_endDot->setNodeMask(0);
    m_startDot->setMatrix(osg::Matrixd::scale(3.0, 3.0, 3.0) *
                          osg::Matrixd::translate(point.x(), point.y(), 0.0));
    LineGeomMaker::addLinePoint(m_line.get(), osg::Vec3f(point, 0.0f));
    m_hasStarted = true;
    emit signalDrawLineFinished(false);
}

void DrawLine::updateImplementation(const osg::Vec2f& point)
{
    if (!m_line)
        return;
    if (pointCount() == 1) {
        LineGeomMaker::addLinePoint(m_line.get(), osg::Vec3f(point, 0.0f));
    } else if (auto* vertices = dynamic_cast<osg::Vec3Array*>(m_line->getVertexArray())) {
        if (vertices->size() > 1) {
            (*vertices)[1] = osg::Vec3f(point, 0.0f);
            vertices->dirty();
            m_line->dirtyBound();
        }
    }
    m_endDot->setNodeMask(1);
    m_endDot->setMatrix(osg::Matrixd::scale(3.0, 3.0, 3.0) *
                        osg::Matrixd::translate(point.x(), point.y(), 0.0));
}

void DrawLine::clearDrawLine()
{
    if (!m_line)
        return;
    LineGeomMaker::clearLinePoint(m_line.get());
    m_startDot->setNodeMask(0);
    m_endDot->setNodeMask(0);
}

void DrawLine::cancelImplementation()
{
    clearDrawLine();
}

void DrawLine::finishImplementation()
{
    if (m_cancelOnFinish) {
        cancelImplementation();
        return;
    }
    if (!m_line)
        return;
    const unsigned int n = pointCount();
    if (n == 1) {
        m_startDot->setNodeMask(0);
    } else if (n >= 2 && m_hasStarted) {
        emit signalDrawLineFinished(true);
        m_hasStarted = false;
    }
}

void DrawLine::switchColor()
{
    if (m_line)
        MakerGeometry::setOverallColor(m_line.get(), currentColor());
    if (m_dot)
        SphereGeomMaker::setColor(m_dot.get(), currentColor());
}

DrawLineHandler::DrawLineHandler(osgViewer::View* view, osg::Group* overlay)
    : DrawManipulator(view), m_overlay(overlay)
{
    if (!m_overlay) {
        m_overlay = createOverlayCamera(view);
        if (view && view->getSceneData() && view->getSceneData()->asGroup())
            view->getSceneData()->asGroup()->addChild(m_overlay.get());
    }
    m_drawObject = QSharedPointer<DrawObject>(new DrawLine(false, m_overlay.get()));
}

} // namespace Orvane
} // namespace Vorna
