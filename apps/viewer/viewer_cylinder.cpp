#include "viewer_cylinder.h"

#include "canvas3d_view.h"
#include "cylinder_manipulator.h"
#include "orvane_operations.h"
#include "render_info.h"
#include "view_info.h"
#include "viewer_keys.h"

#include <algorithm>
#include <osg/ComputeBoundsVisitor>
#include <osgViewer/View>

using namespace Vorna::Orvane;

ViewerCylinder::ViewerCylinder() = default;
ViewerCylinder::~ViewerCylinder() = default;

bool ViewerCylinder::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (!isLetterPress(ea, 'y'))
        return false;
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    ViewInfo* info = ViewMgr::getViewInfo(view);
    if (!info || !info->canvas)
        return false;
    osg::ref_ptr<ViewerCylinder> self = this;
    info->canvas->addOperation(new LambdaOperation([self, view](RenderInfo&) {
        osg::Group* models = ViewMgr::getModel(view);
        if (!models)
            return;
        if (self->m_cylinder) {
            models->removeChild(self->m_cylinder->getCylinderNode());
            self->m_cylinder.reset();
            return;
        }
        osg::ComputeBoundsVisitor bounds;
        for (unsigned int i = 0; i < models->getNumChildren(); ++i) {
            bool valid = true;
            // Aids take no part in bounds.
            if (!models->getChild(i)->getUserValue("valid_bounding_sphere", valid) || valid)
                models->getChild(i)->accept(bounds);
        }
        const osg::BoundingBox box = bounds.getBoundingBox();
        if (!box.valid())
            return;
        const osg::Vec3f size = box._max - box._min;
        const float radius = 0.5f * std::max(size.x(), size.z()) * 1.05f;
        const float height = std::max(size.y(), 0.001f);
        self->m_cylinder.reset(new CylinderManipulator(
            view, osg::Vec3f(box.center().x(), box._min.y(), box.center().z()), osg::Vec3f(0, 1, 0),
            radius, height, osg::Vec4f(0.3f, 0.8f, 0.4f, 0.35f)));
        QObject::connect(self->m_cylinder.get(), &CylinderManipulator::cylinderChanged,
                         [raw = self.get()] { ++raw->m_changes; });
        models->addChild(self->m_cylinder->getCylinderNode());
    }));
    return true;
}
