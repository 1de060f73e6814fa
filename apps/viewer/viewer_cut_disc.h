#pragma once

#include <osg/Program>
#include <osg/Texture1D>
#include <osg/Uniform>
#include <osgGA/GUIEventHandler>
#include <utility>
#include <vector>

namespace Vorna {
namespace Orvane {
class CutPlaneDragger;
class EnableCutSSBOOperation;
} // namespace Orvane
} // namespace Vorna

// C places a cut disc through the middle of the loaded models, or takes it away again. The disc
// is dragged by its face along its normal and turned by its rim; the models are drawn with the
// cut program meanwhile, their side below the disc in the colour row `kSelectIndex`.
class ViewerCutDisc : public osgGA::GUIEventHandler
{
public:
    static constexpr float kSelectIndex = 1.0f;

    ViewerCutDisc();
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

    // Render thread, as the handler itself.
    Vorna::Orvane::CutPlaneDragger* disc() const { return m_disc.get(); }

private:
    struct CutModel {
        osg::ref_ptr<osg::Node> node;
        // What the node's state set held before the disc came.
        osg::ref_ptr<osg::StateAttribute> program;
        osg::StateAttribute::OverrideValue programValue = 0;
    };

    void place(osg::Group* models);
    void remove(osg::Group* models);

    osg::ref_ptr<Vorna::Orvane::CutPlaneDragger> m_disc;
    std::vector<CutModel> m_models;
    std::vector<osg::ref_ptr<osg::Geometry>> m_geometries;
    osg::ref_ptr<osg::Program> m_program;
    osg::ref_ptr<osg::Texture1D> m_rows;
    osg::ref_ptr<osg::Uniform> m_center;
    osg::ref_ptr<osg::Uniform> m_direction;
    osg::ref_ptr<osg::Uniform> m_selectIndex;
    osg::ref_ptr<osg::Uniform> m_useCutInfo;
};
