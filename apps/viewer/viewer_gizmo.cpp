#include "viewer_gizmo.h"
#include "undo_history.h"

#include "canvas3d_view.h"

#include <QObject>
#include <osgViewer/View>

using namespace Vorna::Orvane;

ViewerGizmo::ViewerGizmo(std::vector<osg::ref_ptr<osg::Node>> models, UndoHistory* history)
    : m_models(std::move(models)), m_history(history)
{
}

std::vector<osg::ref_ptr<osg::MatrixTransform>> ViewerGizmo::transforms(osg::Group* group)
{
    std::vector<osg::ref_ptr<osg::MatrixTransform>> result;
    for (osg::ref_ptr<osg::Node>& model : m_models) {
        if (!model || !model->getBound().valid())
            continue;
        auto* mt = dynamic_cast<osg::MatrixTransform*>(model.get());
        if (!mt && group->containsNode(model.get())) {
            mt = new osg::MatrixTransform;
            mt->setName(model->getName());
            mt->addChild(model.get());
            group->replaceChild(model.get(), mt);
            model = mt;
        }
        if (mt)
            result.push_back(mt);
    }
    return result;
}

void ViewerGizmo::hideAll(osg::Group* group)
{
    if (m_dragger) {
        m_dragger->enable(false, osg::Matrixd());
        group->removeChild(m_dragger.get());
        m_dragger = nullptr;
    }
    if (m_adjust) {
        m_adjust->enable(false);
        group->removeChild(m_adjust.get());
        m_adjust = nullptr;
    }
    m_adjustPressed = false;
}

bool ViewerGizmo::toggleModelDragger(osg::Group* group)
{
    if (!group)
        return false;
    const bool show = !m_dragger;
    hideAll(group);
    if (!show)
        return true;
    std::vector<osg::ref_ptr<osg::MatrixTransform>> models = transforms(group);
    if (models.empty())
        return false;
    m_dragger = new ModelDragger(true, false, 0, 0);
    m_moved = models;
    ModelDragger* dragger = m_dragger.get();
    // Both on the render thread, inside the drag's event.
    QObject::connect(dragger, &ModelDragger::beginOfDrag, [this, dragger] { snapshot(dragger); });
    QObject::connect(dragger, &ModelDragger::endOfDrag,
                     [this, dragger] { pushIfMoved("move models", dragger); });
    group->addChild(dragger);
    m_dragger->connectMt(models);
    return m_dragger->enable(true, osg::Matrixd());
}

bool ViewerGizmo::toggleAdjustDragger(osg::Group* group)
{
    if (!group)
        return false;
    const bool show = !m_adjust;
    hideAll(group);
    if (!show)
        return true;
    std::vector<osg::ref_ptr<osg::MatrixTransform>> models = transforms(group);
    if (models.empty())
        return false;
    osg::BoundingSphere bound;
    for (const osg::ref_ptr<osg::MatrixTransform>& mt : models)
        bound.expandBy(mt->getBound());
    // Thin rings and bars, in proportion to the models.
    m_adjust = new ModelAdjustDragger(false, bound.radius() * 0.04f, bound.radius() * 0.015f);
    m_moved = models;
    group->addChild(m_adjust.get());
    for (const osg::ref_ptr<osg::MatrixTransform>& mt : models)
        m_adjust->connectMt(mt);
    return m_adjust->enable(true);
}

void ViewerGizmo::snapshot(osg::MatrixTransform* dragger)
{
    m_before.clear();
    for (const osg::ref_ptr<osg::MatrixTransform>& mt : m_moved)
        m_before.push_back(mt->getMatrix());
    m_draggerBefore = dragger->getMatrix();
}

void ViewerGizmo::pushIfMoved(const QString& name, osg::MatrixTransform* dragger)
{
    std::vector<osg::Matrixd> after;
    for (const osg::ref_ptr<osg::MatrixTransform>& mt : m_moved)
        after.push_back(mt->getMatrix());
    if (!m_history || after == m_before || after.size() != m_before.size())
        return;
    const std::vector<osg::ref_ptr<osg::MatrixTransform>> models = m_moved;
    const osg::observer_ptr<osg::MatrixTransform> handles(dragger);
    auto apply = [models, handles](const std::vector<osg::Matrixd>& matrices,
                                   const osg::Matrixd& handlesMatrix) {
        for (std::size_t i = 0; i < models.size(); ++i)
            models[i]->setMatrix(matrices[i]);
        // The handles follow the models while they are shown.
        osg::ref_ptr<osg::MatrixTransform> shown;
        if (handles.lock(shown))
            shown->setMatrix(handlesMatrix);
    };
    const std::vector<osg::Matrixd> before = m_before;
    const osg::Matrixd handlesBefore = m_draggerBefore, handlesAfter = dragger->getMatrix();
    m_history->push(
        name, [apply, before, handlesBefore] { apply(before, handlesBefore); },
        [apply, after, handlesAfter] { apply(after, handlesAfter); });
}

bool ViewerGizmo::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    osg::Group* group = view ? ViewMgr::getModel(view) : nullptr;
    if (!group)
        return false;
    switch (ea.getEventType()) {
    case osgGA::GUIEventAdapter::KEYDOWN:
        // Upper-case Qt codes: the canvas lowers only its own letters.
        if (ea.getKey() == 'G' || ea.getKey() == 'g') {
            toggleModelDragger(group);
            return true;
        }
        if (ea.getKey() == 'J' || ea.getKey() == 'j') {
            toggleAdjustDragger(group);
            return true;
        }
        return false;
    // The adjust dragger says nothing: its drags are seen here, after it has handled them.
    case osgGA::GUIEventAdapter::PUSH:
        if (m_adjust && m_adjust->getDraggerActive()) {
            snapshot(m_adjust.get());
            m_adjustPressed = true;
        }
        return false;
    case osgGA::GUIEventAdapter::RELEASE:
        if (m_adjust && m_adjustPressed)
            pushIfMoved("adjust models", m_adjust.get());
        m_adjustPressed = false;
        return false;
    default:
        return false;
    }
}
