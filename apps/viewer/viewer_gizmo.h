#pragma once

#include "model_adjust_dragger.h"
#include "model_dragger.h"

#include <osg/Group>
#include <osg/MatrixTransform>
#include <osgGA/GUIEventHandler>
#include <vector>

class UndoHistory;

// G shows or hides the model dragger (arrows move, arcs turn) on the viewer's models; J the
// adjust dragger (rings turn, bars slide), sized by the models. One at a time. Every drag that
// changed something is one step of `history`. Render thread, as an event handler of the view.
class ViewerGizmo : public osgGA::GUIEventHandler
{
public:
    ViewerGizmo(std::vector<osg::ref_ptr<osg::Node>> models, UndoHistory* history);

    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

    // Both take the model group of the view; false when there is nothing to move.
    bool toggleModelDragger(osg::Group* group);
    bool toggleAdjustDragger(osg::Group* group);

    Vorna::Orvane::ModelDragger* modelDragger() const { return m_dragger.get(); }
    Vorna::Orvane::ModelAdjustDragger* adjustDragger() const { return m_adjust.get(); }

private:
    // The models as transforms; a model that is none is put under one, in its place.
    std::vector<osg::ref_ptr<osg::MatrixTransform>> transforms(osg::Group* group);
    void hideAll(osg::Group* group);
    void snapshot(osg::MatrixTransform* dragger);
    void pushIfMoved(const QString& name, osg::MatrixTransform* dragger);

    std::vector<osg::ref_ptr<osg::Node>> m_models;
    UndoHistory* m_history;
    osg::ref_ptr<Vorna::Orvane::ModelDragger> m_dragger;
    osg::ref_ptr<Vorna::Orvane::ModelAdjustDragger> m_adjust;
    std::vector<osg::ref_ptr<osg::MatrixTransform>> m_moved;
    std::vector<osg::Matrixd> m_before;
    osg::Matrixd m_draggerBefore;
    bool m_adjustPressed = false;
};
