#include "orvane_metatypes.h"

namespace Vorna {
namespace Orvane {

void registerMetaTypes()
{
    qRegisterMetaType<osg::Operation*>("osg::Operation*");
    qRegisterMetaType<OperationList>("std::vector<osg::ref_ptr<osg::Operation>>");
    qRegisterMetaType<osgViewer::View*>("osgViewer::View*");
    qRegisterMetaType<osg::Array*>("osg::Array*");
    qRegisterMetaType<osg::Vec2Array*>("osg::Vec2Array*");
    qRegisterMetaType<osg::Vec3Array*>("osg::Vec3Array*");
    qRegisterMetaType<osg::Image*>("osg::Image*");
    qRegisterMetaType<osg::DrawElementsUInt*>("osg::DrawElementsUInt*");
    qRegisterMetaType<osg::Vec2f>("osg::Vec2f");
    qRegisterMetaType<osg::Vec3f>("osg::Vec3f");
    qRegisterMetaType<osg::Vec4f>("osg::Vec4f");
    // Dragger signals spell it osg::Matrix.
    qRegisterMetaType<osg::Matrixd>("osg::Matrix");
    qRegisterMetaType<osg::Matrixd>("osg::Matrixd");
    qRegisterMetaType<RefGroup>("Vorna::Orvane::RefGroup");
    qRegisterMetaType<RefNode>("Vorna::Orvane::RefNode");
    qRegisterMetaType<RefMT>("Vorna::Orvane::RefMT");
    qRegisterMetaType<MTList>("Vorna::Orvane::MTList");
    qRegisterMetaType<NodeList>("Vorna::Orvane::NodeList");
    qRegisterMetaType<StateList>("Vorna::Orvane::StateList");
}

} // namespace Orvane
} // namespace Vorna
