// The cut disc's storage buffer operation and its constraints on commands built by hand.
#include "canvas3d_drawable.h"
#include "cut_plane_dragger.h"

#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <osg/BufferIndexBinding>
#include <osg/Geometry>

using namespace Vorna::Orvane;

namespace {

osg::ref_ptr<osg::Geometry> triangle()
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    v->push_back(osg::Vec3(0, 0, 0));
    v->push_back(osg::Vec3(1, 0, 0));
    v->push_back(osg::Vec3(0, 1, 0));
    geometry->setVertexArray(v.get());
    return geometry;
}

const osg::ShaderStorageBufferBinding* binding(osg::Geometry* geometry)
{
    osg::StateSet* ss = geometry->getStateSet();
    return ss ? dynamic_cast<const osg::ShaderStorageBufferBinding*>(
                    ss->getAttribute(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING, 0))
              : nullptr;
}

TEST(EnableCutSSBOOperation, BindsSixIntsWithTheirStartingValuesAndRemovesThem)
{
    osg::ref_ptr<osg::Geometry> geometry = triangle();
    osg::ref_ptr<EnableCutSSBOOperation> enable = new EnableCutSSBOOperation(geometry, true);
    EXPECT_EQ(enable->getName(), "enable cut SSBO");
    EXPECT_EQ(EnableCutSSBOOperation::m_numSSBO, 6);
    (*enable)(nullptr);

    const osg::ShaderStorageBufferBinding* bound = binding(geometry.get());
    ASSERT_NE(bound, nullptr);
    EXPECT_EQ(bound->getIndex(), 0u);
    EXPECT_EQ(bound->getSize(), GLsizeiptr(6 * sizeof(GLint)));
    const auto* ints = dynamic_cast<const osg::IntArray*>(bound->getBufferData());
    ASSERT_NE(ints, nullptr);
    // Running maxima start at the smallest int, minima at the largest, counts at 0.
    EXPECT_EQ(std::vector<int>(ints->begin(), ints->end()),
              std::vector<int>({INT_MIN, INT_MAX, INT_MAX, INT_MIN, 0, 0}));
    EXPECT_EQ(ints->getBufferObject(), enable->buffer());
    EXPECT_EQ(enable->buffer()->getUsage(), GLenum(GL_DYNAMIC_READ));
    EXPECT_EQ(geometry->getDrawCallback(), enable->drawCallback());

    osg::ref_ptr<EnableCutSSBOOperation> disable = new EnableCutSSBOOperation(geometry, false);
    EXPECT_EQ(disable->buffer(), nullptr);
    (*disable)(nullptr);
    EXPECT_EQ(binding(geometry.get()), nullptr);
}

TEST(EnableCutSSBOOperation, DisablingWithNothingBoundDoesNothing)
{
    osg::ref_ptr<osg::Geometry> bare = triangle();
    osg::ref_ptr<EnableCutSSBOOperation> op = new EnableCutSSBOOperation(bare, false);
    (*op)(nullptr);
    EXPECT_EQ(bare->getStateSet(), nullptr);

    osg::ref_ptr<osg::Geometry> other = triangle();
    osg::ref_ptr<osg::Uniform> kept = new osg::Uniform("useCutInfo", true);
    other->getOrCreateStateSet()->addUniform(kept.get());
    op = new EnableCutSSBOOperation(other, false);
    (*op)(nullptr);
    EXPECT_EQ(other->getStateSet()->getUniform("useCutInfo"), kept.get());
    EXPECT_EQ(other->getStateSet()->getAttributeList().size(), 0u);
}

// A disc at the origin of the world, facing +z, and a command in its own frame.
struct Disc {
    osg::ref_ptr<osg::MatrixTransform> node = new osg::MatrixTransform;
};

osg::ref_ptr<osg::MatrixTransform> modelOf(const std::vector<osg::Vec3>& points)
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(new osg::Vec3Array(points.begin(), points.end()));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry.get());
    osg::ref_ptr<osg::MatrixTransform> model = new osg::MatrixTransform;
    model->addChild(geode.get());
    return model;
}

TEST(RangeConstraint, ClipsAPushAtTheMaximumDistanceFromItsCentre)
{
    Disc disc;
    osg::ref_ptr<RangeConstraint> range = new RangeConstraint(*disc.node, osg::Vec3d(0, 0, 0), 2.0);
    osg::ref_ptr<osgManipulator::TranslateInLineCommand> command =
        new osgManipulator::TranslateInLineCommand(osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, 1));
    command->setStage(osgManipulator::MotionCommand::START);
    command->accept(*range);

    command->setStage(osgManipulator::MotionCommand::MOVE);
    command->setTranslation(osg::Vec3d(0, 0, 1.5));
    command->accept(*range);
    EXPECT_EQ(command->getTranslation(), osg::Vec3d(0, 0, 1.5));
    command->setTranslation(osg::Vec3d(0, 0, -3.5));
    command->accept(*range);
    EXPECT_NEAR((command->getTranslation() - osg::Vec3d(0, 0, -2.0)).length(), 0.0, 1e-12);
}

TEST(CutConstraint, ATurnThatLeavesTheModelKeepsTheLastGoodRotation)
{
    Disc disc;
    // All points above the plane z = 0 but for one just below: the model is cut. All lie at
    // y > 0, behind the plane once it is turned a quarter about x.
    osg::ref_ptr<osg::MatrixTransform> model =
        modelOf({{0, 0.5f, 0.3f}, {0.5f, 0.5f, -0.1f}, {-0.5f, 1, 0.2f}});
    osg::ref_ptr<CutConstraint> cut = new CutConstraint(*disc.node, model.get(), true);
    osg::ref_ptr<osgManipulator::Rotate3DCommand> command = new osgManipulator::Rotate3DCommand;
    command->setStage(osgManipulator::MotionCommand::START);
    command->accept(*cut);

    command->setStage(osgManipulator::MotionCommand::MOVE);
    const osg::Quat small(0.1, osg::Vec3d(1, 0, 0));
    command->setRotation(small);
    command->accept(*cut);
    EXPECT_EQ(command->getRotation(), small);
    // A quarter turn puts every point below the plane: the answer is the last good turn.
    command->setRotation(osg::Quat(osg::PI_2, osg::Vec3d(1, 0, 0)));
    command->accept(*cut);
    EXPECT_EQ(command->getRotation(), small);

    // Without cutting, a plane that would touch the model is held as well.
    osg::ref_ptr<CutConstraint> clear = new CutConstraint(*disc.node, model.get(), false);
    command->setStage(osgManipulator::MotionCommand::START);
    command->setRotation(osg::Quat());
    command->accept(*clear);
    command->setStage(osgManipulator::MotionCommand::MOVE);
    command->setRotation(small);
    command->accept(*clear);
    EXPECT_EQ(command->getRotation(), osg::Quat());
}

TEST(CutConstraint, ReadsThePositionsOfTheLibrarysOwnMeshes)
{
    // The mesh factory keeps positions in attribute slot 0, not in the vertex array.
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (const osg::Vec3& p :
         {osg::Vec3(0, 0.5f, 0.3f), osg::Vec3(0.5f, 0.5f, -0.1f), osg::Vec3(-0.5f, 1, 0.2f)})
        v->push_back(p);
    osg::ref_ptr<osg::Vec3Array> n = new osg::Vec3Array;
    n->assign(3, osg::Vec3(0, 0, 1));
    osg::ref_ptr<osg::MatrixTransform> model = Mesh::create(v.get(), n.get(), n.get());
    Disc disc;
    osg::ref_ptr<CutConstraint> cut = new CutConstraint(*disc.node, model.get(), true);
    osg::ref_ptr<osgManipulator::Rotate3DCommand> command = new osgManipulator::Rotate3DCommand;
    command->setStage(osgManipulator::MotionCommand::START);
    command->accept(*cut);
    command->setStage(osgManipulator::MotionCommand::MOVE);
    command->setRotation(osg::Quat(osg::PI_2, osg::Vec3d(1, 0, 0)));
    command->accept(*cut);
    EXPECT_EQ(command->getRotation(), osg::Quat());
}

TEST(CutConstraint, AnEmptyModelLeavesTheTurnAlone)
{
    Disc disc;
    osg::ref_ptr<osg::MatrixTransform> model = modelOf({});
    osg::ref_ptr<CutConstraint> cut = new CutConstraint(*disc.node, model.get(), true);
    osg::ref_ptr<osgManipulator::Rotate3DCommand> command = new osgManipulator::Rotate3DCommand;
    command->setStage(osgManipulator::MotionCommand::START);
    command->accept(*cut);
    command->setStage(osgManipulator::MotionCommand::MOVE);
    const osg::Quat flip(osg::PI, osg::Vec3d(1, 0, 0));
    command->setRotation(flip);
    command->accept(*cut);
    EXPECT_EQ(command->getRotation(), flip);
}

} // namespace
