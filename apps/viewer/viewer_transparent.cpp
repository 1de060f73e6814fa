#include "viewer_transparent.h"

#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <algorithm>
#include <cmath>
#include <osg/Geometry>
#include <osg/NodeVisitor>
#include <osgViewer/View>

using namespace Vorna::Orvane;

namespace {

// Whether a subgraph draws triangles: points, lines and the live cloud stay opaque, since the
// transparent passes shade surfaces.
class FindTriangles : public osg::NodeVisitor
{
public:
    FindTriangles() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    void apply(osg::Drawable& drawable) override
    {
        const osg::Geometry* geometry = drawable.asGeometry();
        for (unsigned int i = 0; geometry && i < geometry->getNumPrimitiveSets(); ++i) {
            const GLenum mode = geometry->getPrimitiveSet(i)->getMode();
            found = found || mode == GL_TRIANGLES || mode == GL_TRIANGLE_STRIP ||
                    mode == GL_TRIANGLE_FAN;
        }
    }
    bool found = false;
};

bool drawsTriangles(osg::Node* node)
{
    FindTriangles finder;
    node->accept(finder);
    return finder.found;
}

} // namespace

ViewerTransparency::ViewerTransparency(float opacity)
    : m_opacity(std::clamp(opacity, 0.1f, 0.9f)), m_wrapper(new osg::Group)
{
    m_wrapper->setName("viewer see-through");
    osg::StateSet* ss = m_wrapper->getOrCreateStateSet();
    // Over whatever program each mesh brought; the second pass sets its own over this one.
    ss->setAttributeAndModes(
        OrvaneSingleton::instance()->getShaderMgr()->getShader(g_transMeshProgramStr),
        osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    ss->addUniform(new osg::Uniform("alpha", m_opacity),
                   osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
}

bool ViewerTransparency::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (ea.getEventType() != osgGA::GUIEventAdapter::KEYDOWN)
        return false;
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    ViewInfo* info = ViewMgr::getViewInfo(view);
    if (!info || !info->canvas)
        return false;
    const int key = ea.getKey();
    if (key == '[' || key == ']') {
        // Tenths, so that repeated steps land on the same values.
        const float step = key == '[' ? -0.1f : 0.1f;
        m_opacity = std::clamp(std::round((m_opacity + step) * 10.0f) / 10.0f, 0.1f, 0.9f);
        m_wrapper->getStateSet()->getUniform("alpha")->set(m_opacity);
        return true;
    }
    if (key != 't')
        return false;

    osg::ref_ptr<osg::Group> wrapper = m_wrapper;
    osg::ref_ptr<osgViewer::View> held = view;
    m_on = !m_on;
    if (m_on) {
        info->canvas->addOperation(new LambdaOperation([wrapper, held](RenderInfo&) {
            osg::Group* model = ViewMgr::getModel(held.get());
            std::vector<osg::ref_ptr<osg::Node>> meshes;
            for (unsigned int i = 0; i < model->getNumChildren(); ++i)
                if (drawsTriangles(model->getChild(i)))
                    meshes.push_back(model->getChild(i));
            for (const osg::ref_ptr<osg::Node>& mesh : meshes) {
                model->removeChild(mesh.get());
                wrapper->addChild(mesh.get());
            }
            ViewMgr::getTransModel(held.get())->addChild(wrapper.get());
        }));
        info->canvas->addOperation(OrvaneSingleton::instance()->enableTransparent(held, true));
    } else {
        info->canvas->addOperation(OrvaneSingleton::instance()->enableTransparent(held, false));
        info->canvas->addOperation(new LambdaOperation([wrapper, held](RenderInfo&) {
            ViewMgr::getTransModel(held.get())->removeChild(wrapper.get());
            // Back after whatever came into the model group meanwhile.
            osg::Group* model = ViewMgr::getModel(held.get());
            for (unsigned int i = 0; i < wrapper->getNumChildren(); ++i)
                model->addChild(wrapper->getChild(i));
            wrapper->removeChildren(0, wrapper->getNumChildren());
        }));
    }
    return true;
}
