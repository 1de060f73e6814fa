#include "viewer_cut_disc.h"

#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "cut_plane_dragger.h"
#include "orvane_operations.h"
#include "render_info.h"
#include "view_info.h"
#include "viewer_keys.h"

#include <cmath>
#include <osg/ComputeBoundsVisitor>
#include <osg/Geometry>
#include <osgViewer/View>

using namespace Vorna::Orvane;

namespace {

// Keeps the published plane on the disc, however it was dragged.
class DiscPlaneCallback : public osg::NodeCallback
{
public:
    DiscPlaneCallback(osg::Uniform* center, osg::Uniform* direction)
        : m_center(center), m_direction(direction)
    {
    }

    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        const osg::MatrixList worlds = node->getWorldMatrices();
        if (!worlds.empty()) {
            m_center->set(osg::Vec3f(worlds.front().getTrans()));
            osg::Vec3d normal = osg::Matrixd::transform3x3(osg::Vec3d(0, 0, 1), worlds.front());
            normal.normalize();
            m_direction->set(osg::Vec3f(normal));
        }
        traverse(node, nv);
    }

private:
    osg::ref_ptr<osg::Uniform> m_center;
    osg::ref_ptr<osg::Uniform> m_direction;
};

class CollectGeometries : public osg::NodeVisitor
{
public:
    CollectGeometries() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    // Surfaces only: the cut program needs normals; point clouds and raw drawables keep theirs.
    void apply(osg::Geometry& geometry) override
    {
        // The library's own meshes carry their arrays in attribute slots 0 and 1.
        if ((geometry.getVertexArray() || geometry.getVertexAttribArray(0)) &&
            (geometry.getNormalArray() || geometry.getVertexAttribArray(1)))
            found.push_back(&geometry);
    }
    std::vector<osg::ref_ptr<osg::Geometry>> found;
};

} // namespace

ViewerCutDisc::ViewerCutDisc()
    : m_center(new osg::Uniform("center", osg::Vec3f())),
      m_direction(new osg::Uniform("direction", osg::Vec3f(0, 0, 1))),
      m_selectIndex(new osg::Uniform("selectIndex", kSelectIndex)),
      m_useCutInfo(new osg::Uniform("useCutInfo", true))
{
    osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array;
    rows->push_back(osg::Vec3(0.0f, 0.0f, 0.0f));
    rows->push_back(osg::Vec3(0.95f, 0.35f, 0.2f));
    m_rows = Mesh::createColorIndex(rows.get());
}

bool ViewerCutDisc::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (!isLetterPress(ea, 'c'))
        return false;
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    ViewInfo* info = ViewMgr::getViewInfo(view);
    if (!info || !info->canvas)
        return false;
    osg::ref_ptr<ViewerCutDisc> self = this;
    info->canvas->addOperation(new LambdaOperation([self, view](RenderInfo&) {
        osg::Group* models = ViewMgr::getModel(view);
        if (self->m_disc.valid())
            self->remove(models);
        else
            self->place(models);
    }));
    return true;
}

void ViewerCutDisc::place(osg::Group* models)
{
    if (!models)
        return;
    // Aids (gizmos, other draggers) say they take no part in bounds; they are not cut either.
    auto isAid = [](osg::Node* node) {
        bool valid = true;
        return node->getUserValue("valid_bounding_sphere", valid) && !valid;
    };
    osg::ComputeBoundsVisitor bounds;
    for (unsigned int i = 0; i < models->getNumChildren(); ++i)
        if (!isAid(models->getChild(i)))
            models->getChild(i)->accept(bounds);
    const osg::BoundingBox box = bounds.getBoundingBox();
    if (!box.valid())
        return;
    m_program = ShaderManager::instance()->getShader(g_cutMeshDynamicLightProgramStr);
    osg::MatrixTransform* firstModel = nullptr;
    for (unsigned int i = 0; i < models->getNumChildren(); ++i) {
        osg::Node* node = models->getChild(i);
        if (isAid(node))
            continue;
        CollectGeometries geometries;
        node->accept(geometries);
        if (geometries.found.empty())
            continue;
        CutModel model;
        model.node = node;
        osg::StateSet* ss = node->getOrCreateStateSet();
        if (const osg::StateSet::RefAttributePair* pair =
                ss->getAttributePair(osg::StateAttribute::PROGRAM)) {
            model.program = pair->first;
            model.programValue = pair->second;
        }
        // Over the models' own programs, which sit on their geometries or on themselves.
        ss->setAttributeAndModes(m_program.get(),
                                 osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
        ss->setTextureAttributeAndModes(1, m_rows.get(), osg::StateAttribute::ON);
        for (osg::Uniform* uniform :
             {m_center.get(), m_direction.get(), m_selectIndex.get(), m_useCutInfo.get()})
            ss->addUniform(uniform);
        for (const osg::ref_ptr<osg::Geometry>& geometry : geometries.found) {
            osg::ref_ptr<EnableCutSSBOOperation> enable =
                new EnableCutSSBOOperation(geometry, true);
            (*enable)(nullptr);
            m_geometries.push_back(geometry);
        }
        if (!firstModel)
            firstModel = dynamic_cast<osg::MatrixTransform*>(node);
        m_models.push_back(model);
    }

    // Across the longest reach of the models, turned from face-on so both drags are at hand.
    const double radius = 0.6 * box.radius();
    const osg::Vec3d normal(std::cos(osg::PI / 6.0), 0.0, std::sin(osg::PI / 6.0));
    m_disc = new CutPlaneDragger;
    m_disc->setupDefaultGeometry();
    m_disc->setHandleEvents(true);
    m_disc->setMatrix(osg::Matrixd::scale(radius, radius, radius) *
                      osg::Matrixd::rotate(osg::Vec3d(0, 0, 1), normal) *
                      osg::Matrixd::translate(box.center()));
    m_disc->getTranslateDragger()->addConstraint(
        new RangeConstraint(*m_disc, osg::Vec3d(box.center()), box.radius()));
    if (firstModel) {
        osg::ref_ptr<CutConstraint> keepCutting = new CutConstraint(*m_disc, firstModel, true);
        for (int i = 0; i < CutPlaneDragger::kRimDraggers; ++i)
            m_disc->getDragger(i)->addConstraint(keepCutting.get());
    }
    m_disc->addUpdateCallback(new DiscPlaneCallback(m_center.get(), m_direction.get()));
    m_center->set(osg::Vec3f(box.center()));
    m_direction->set(osg::Vec3f(normal));
    models->addChild(m_disc.get());
}

void ViewerCutDisc::remove(osg::Group* models)
{
    if (models)
        models->removeChild(m_disc.get());
    m_disc = nullptr;
    for (const CutModel& model : m_models) {
        osg::StateSet* ss = model.node->getStateSet();
        if (!ss)
            continue;
        ss->removeAttribute(osg::StateAttribute::PROGRAM);
        if (model.program.valid())
            ss->setAttributeAndModes(model.program.get(), model.programValue);
        ss->removeTextureAttribute(1, osg::StateAttribute::TEXTURE);
        for (osg::Uniform* uniform :
             {m_center.get(), m_direction.get(), m_selectIndex.get(), m_useCutInfo.get()})
            ss->removeUniform(uniform);
    }
    for (const osg::ref_ptr<osg::Geometry>& geometry : m_geometries) {
        osg::ref_ptr<EnableCutSSBOOperation> disable = new EnableCutSSBOOperation(geometry, false);
        (*disable)(nullptr);
        geometry->setDrawCallback(nullptr);
    }
    m_models.clear();
    m_geometries.clear();
}
