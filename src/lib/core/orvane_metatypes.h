#pragma once

// Types that cross the meta-object system: QML calls of the façade and the canvas item,
// queued signals and invocations.
#include <QMetaType>
#include <osg/Array>
#include <osg/Group>
#include <osg/Image>
#include <osg/MatrixTransform>
#include <osg/Matrixd>
#include <osg/OperationThread>
#include <osg/PrimitiveSet>
#include <osgViewer/View>
#include <vector>

namespace Vorna {
namespace Orvane {

using RefGroup = osg::ref_ptr<osg::Group>;
using RefNode = osg::ref_ptr<osg::Node>;
using RefMT = osg::ref_ptr<osg::MatrixTransform>;
using MTList = std::vector<RefMT>;
using NodeList = std::vector<RefNode>;
// One selection state per vertex, one list per transform.
using StateList = std::vector<std::vector<GLbyte>>;
using OperationList = std::vector<osg::ref_ptr<osg::Operation>>;

// Registers the types below by name; safe to call more than once.
void registerMetaTypes();

} // namespace Orvane
} // namespace Vorna

Q_DECLARE_METATYPE(osg::Operation*)
Q_DECLARE_METATYPE(osgViewer::View*)
Q_DECLARE_METATYPE(osg::Array*)
Q_DECLARE_METATYPE(osg::Vec2Array*)
Q_DECLARE_METATYPE(osg::Vec3Array*)
Q_DECLARE_METATYPE(osg::Image*)
Q_DECLARE_METATYPE(osg::DrawElementsUInt*)
Q_DECLARE_METATYPE(osg::Vec2f)
Q_DECLARE_METATYPE(osg::Vec3f)
Q_DECLARE_METATYPE(osg::Vec4f)
Q_DECLARE_METATYPE(osg::Matrixd)
Q_DECLARE_METATYPE(Vorna::Orvane::RefGroup)
Q_DECLARE_METATYPE(Vorna::Orvane::RefNode)
Q_DECLARE_METATYPE(Vorna::Orvane::RefMT)
Q_DECLARE_METATYPE(Vorna::Orvane::MTList)
Q_DECLARE_METATYPE(Vorna::Orvane::NodeList)
Q_DECLARE_METATYPE(Vorna::Orvane::StateList)
Q_DECLARE_METATYPE(Vorna::Orvane::OperationList)
