// Scene aid builders: the primitives, programs and uniforms they choose, and bad input.
#include "common_model.h"
#include "cut_plane_generator.h"

#include <gtest/gtest.h>
#include <osg/CullFace>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/Program>
#include <osg/Switch>

using namespace Vorna::Orvane;

namespace {

osg::Geometry* firstGeometry(osg::Geode* geode)
{
    return geode && geode->getNumDrawables() ? geode->getDrawable(0)->asGeometry() : nullptr;
}

GLenum modeOf(osg::Geode* geode)
{
    return firstGeometry(geode)->getPrimitiveSet(0)->getMode();
}

template <typename T> T uniformValue(osg::StateSet* ss, const char* name)
{
    T value{};
    osg::Uniform* uniform = ss->getUniform(name);
    EXPECT_NE(uniform, nullptr) << name;
    if (uniform)
        uniform->get(value);
    return value;
}

} // namespace

TEST(WidthLineTest, TwoPointsAreLinesAndThreeAStrip)
{
    osg::ref_ptr<osg::Geode> two =
        CommonModel::createWidthLine({{0, 0, 0}, {1, 0, 0}}, osg::Vec4f(1, 0, 0, 1), 10, false);
    EXPECT_EQ(modeOf(two.get()), static_cast<GLenum>(GL_LINES));
    osg::ref_ptr<osg::Geode> three = CommonModel::createWidthLine(
        {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, osg::Vec4f(1, 0, 0, 1), 10, false);
    EXPECT_EQ(modeOf(three.get()), static_cast<GLenum>(GL_LINE_STRIP));
}

TEST(WidthLineTest, LoopRepeatsTheFirstPoint)
{
    osg::ref_ptr<osg::Geode> loop = CommonModel::createWidthLine({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}},
                                                                 osg::Vec4f(1, 0, 0, 1), 10, true);
    auto* vertices = static_cast<osg::Vec3Array*>(firstGeometry(loop.get())->getVertexArray());
    ASSERT_EQ(vertices->size(), 4u);
    EXPECT_EQ(vertices->back(), osg::Vec3f(0, 0, 0));
    // Two points closed make three: a strip.
    osg::ref_ptr<osg::Geode> closedPair =
        CommonModel::createWidthLine({{0, 0, 0}, {1, 0, 0}}, osg::Vec4f(1, 0, 0, 1), 10, true);
    EXPECT_EQ(modeOf(closedPair.get()), static_cast<GLenum>(GL_LINE_STRIP));
}

TEST(WidthLineTest, UnsetResolutionIs2400By1800)
{
    for (const osg::Vec2f& given : {osg::Vec2f(0, 0), osg::Vec2f(800, 0), osg::Vec2f(0, 600)}) {
        osg::ref_ptr<osg::Geode> line = CommonModel::createWidthLine(
            {{0, 0, 0}, {1, 0, 0}}, osg::Vec4f(1, 0, 0, 1), 10, false, given.x(), given.y());
        osg::StateSet* ss = line->getStateSet();
        EXPECT_EQ(uniformValue<osg::Vec2f>(ss, "resolution"), osg::Vec2f(2400, 1800));
        EXPECT_FLOAT_EQ(uniformValue<float>(ss, "lineWidth"), 10.0f);
    }
    osg::ref_ptr<osg::Geode> line = CommonModel::createWidthLine(
        {{0, 0, 0}, {1, 0, 0}}, osg::Vec4f(1, 0, 0, 1), 10, false, 800, 600);
    EXPECT_EQ(uniformValue<osg::Vec2f>(line->getStateSet(), "resolution"), osg::Vec2f(800, 600));
}

TEST(WidthLineTest, DrawnByWidthLineProgramOverridingAndUnblended)
{
    osg::ref_ptr<osg::Geode> line =
        CommonModel::createWidthLine({{0, 0, 0}, {1, 0, 0}}, osg::Vec4f(1, 0, 0, 1), 10, false);
    osg::StateSet* ss = line->getStateSet();
    const osg::StateSet::RefAttributePair* program =
        ss->getAttributePair(osg::StateAttribute::PROGRAM);
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->first->getName(), "widthLine");
    EXPECT_TRUE(program->second & osg::StateAttribute::OVERRIDE);
    EXPECT_EQ(ss->getMode(GL_BLEND) & osg::StateAttribute::ON, 0u);
}

TEST(WidthLineTest, NoPointsGiveAnEmptyLine)
{
    osg::ref_ptr<osg::Geode> line =
        CommonModel::createWidthLine({}, osg::Vec4f(1, 0, 0, 1), 10, true);
    ASSERT_NE(firstGeometry(line.get()), nullptr);
    EXPECT_EQ(firstGeometry(line.get())->getVertexArray()->getNumElements(), 0u);
}

TEST(HelperShapeTest, SphereTakesItsSwitchesAsUniforms)
{
    osg::ref_ptr<osg::Geode> plain =
        CommonModel::createShpere(osg::Vec3f(), 1.0f, osg::Vec4f(0, 1, 0, 1), false, false, true);
    osg::StateSet* ss = plain->getStateSet();
    EXPECT_EQ(uniformValue<int>(ss, "enableDepthOffest"), 0);
    EXPECT_FLOAT_EQ(uniformValue<float>(ss, "depthOffset"), 5.0f);
    EXPECT_EQ(uniformValue<int>(ss, "enableLight"), 1);
    EXPECT_EQ(uniformValue<osg::Vec4f>(ss, "uniformColor"), osg::Vec4f(0, 1, 0, 1));
    EXPECT_EQ(ss->getAttribute(osg::StateAttribute::CULLFACE), nullptr);
    EXPECT_EQ(ss->getAttribute(osg::StateAttribute::PROGRAM)->getName(), "common_model_osg");

    osg::ref_ptr<osg::Geode> culled =
        CommonModel::createShpere(osg::Vec3f(), 1.0f, osg::Vec4f(0, 1, 0, 1), true, true, false);
    ss = culled->getStateSet();
    EXPECT_EQ(uniformValue<int>(ss, "enableDepthOffest"), 1);
    EXPECT_EQ(uniformValue<int>(ss, "enableLight"), 0);
    auto* cull = dynamic_cast<osg::CullFace*>(ss->getAttribute(osg::StateAttribute::CULLFACE));
    ASSERT_NE(cull, nullptr);
    EXPECT_EQ(cull->getMode(), osg::CullFace::BACK);
}

TEST(HelperShapeTest, EveryGeometryUsesItsOwnVertexArrayObject)
{
    std::vector<osg::ref_ptr<osg::Node>> nodes = {
        CommonModel::createCylinder(osg::Vec3f(), 1, 2, osg::Vec4f(1, 1, 1, 1)),
        CommonModel::createCone(osg::Vec3f(), 1, 2, osg::Vec4f(1, 1, 1, 1)),
        CommonModel::createShpere(osg::Vec3f(), 1, osg::Vec4f(1, 1, 1, 1)),
        CommonModel::createText("a", osg::Vec4f(1, 1, 1, 1), 12, nullptr),
        CommonModel::createWidthLine({{0, 0, 0}, {1, 0, 0}}, osg::Vec4f(1, 1, 1, 1), 1, false),
        CommonModel::createCylinderLine({{{0, 0, 0}, {1, 0, 0}}}, 0.1f, osg::Vec4f(1, 1, 1, 1)),
        CommonModel::createCoordFrame(CommonModel::CoordFrameCreateInfo())};
    osg::BoundingBox box(0, 0, 0, 4, 1, 2);
    nodes.push_back(CommonModel::createClipPlane(box));

    struct Check : osg::NodeVisitor {
        Check() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
        void apply(osg::Drawable& drawable) override
        {
            ++count;
            EXPECT_TRUE(drawable.getUseVertexArrayObject()) << drawable.className();
            EXPECT_FALSE(drawable.getUseDisplayList()) << drawable.className();
        }
        int count = 0;
    };
    for (const auto& node : nodes) {
        Check check;
        node->accept(check);
        EXPECT_GT(check.count, 0);
    }
}

TEST(HelperShapeTest, CoordFrameHasThreeArrowsInTheirColours)
{
    CommonModel::CoordFrameCreateInfo info;
    info.origin.set(1, 2, 3);
    osg::ref_ptr<osg::Group> frame = CommonModel::createCoordFrame(info);
    ASSERT_EQ(frame->getNumChildren(), 3u);
    auto* placed = dynamic_cast<osg::MatrixTransform*>(frame.get());
    ASSERT_NE(placed, nullptr);
    EXPECT_EQ(placed->getMatrix().getTrans(), osg::Vec3d(1, 2, 3));
    // The bound reaches `length` along each axis from the origin.
    const osg::BoundingSphere bound = frame->getBound();
    EXPECT_NEAR(bound.radius(), 1.0, 0.35);
    const osg::Vec4f colours[3] = {info.xColor, info.yColor, info.zColor};
    for (unsigned i = 0; i < 3; ++i) {
        osg::Group* arrow = frame->getChild(i)->asGroup();
        ASSERT_EQ(arrow->getNumChildren(), 2u);
        EXPECT_EQ(uniformValue<osg::Vec4f>(arrow->getChild(0)->getStateSet(), "uniformColor"),
                  colours[i]);
    }
}

TEST(HelperShapeTest, CylinderLineHasOneTubePerPolyline)
{
    osg::ref_ptr<osg::Geode> tubes = CommonModel::createCylinderLine(
        {{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, {{0, 0, 1}, {0, 1, 1}}, {{5, 5, 5}}}, 0.1f,
        osg::Vec4f(1, 0, 0, 1));
    // A single point still gives its ball.
    EXPECT_EQ(tubes->getNumDrawables(), 3u);
    const osg::BoundingBox box = tubes->getDrawable(0)->getBoundingBox();
    EXPECT_NEAR(box.xMax(), 1.1f, 1e-3f);
    EXPECT_NEAR(box.yMin(), -0.1f, 1e-3f);
}

TEST(RectPlaneTest, FormsAndMissingImage)
{
    osg::ref_ptr<osg::Geode> centred =
        CommonModel::createRectPlane(osg::Vec3f(1, 1, 0), 2.0f, 4.0f, osg::Vec4f(1, 1, 1, 0.5f));
    const osg::BoundingBox box = centred->getDrawable(0)->getBoundingBox();
    EXPECT_FLOAT_EQ(box.xMin(), 0.0f);
    EXPECT_FLOAT_EQ(box.yMax(), 3.0f);
    EXPECT_TRUE(centred->getStateSet()->getMode(GL_BLEND) & osg::StateAttribute::ON);

    const osg::Vec3f corners[4] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    EXPECT_EQ(CommonModel::createRectPlane(corners, static_cast<osg::Image*>(nullptr)), nullptr);
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE);
    osg::ref_ptr<osg::Geode> textured = CommonModel::createRectPlane(corners, image.get());
    ASSERT_NE(textured, nullptr);
    EXPECT_NE(textured->getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE),
              nullptr);
    EXPECT_NE(firstGeometry(textured.get())->getTexCoordArray(0), nullptr);
}

TEST(TextTest, NullTextAndUnknownFontStillGiveALabel)
{
    osg::ref_ptr<osg::Geode> label =
        CommonModel::createText(nullptr, osg::Vec4f(1, 1, 1, 1), 20, "/nonexistent/font.ttf");
    ASSERT_EQ(label->getNumDrawables(), 1u);
    auto* text = dynamic_cast<osgText::Text*>(label->getDrawable(0));
    ASSERT_NE(text, nullptr);
    EXPECT_TRUE(text->getText().empty());
    EXPECT_EQ(label->getStateSet()->getMode(GL_LIGHTING) & osg::StateAttribute::ON, 0u);

    CommonModel::TextCreateInfo info;
    info.position.set(1, 2, 3);
    info.alwaysOnTop = false;
    label = CommonModel::createText("12.5 mm", osg::Vec4f(1, 0, 0, 1), 20, nullptr, info);
    text = dynamic_cast<osgText::Text*>(label->getDrawable(0));
    EXPECT_EQ(text->getPosition(), osg::Vec3(1, 2, 3));
    EXPECT_EQ(text->getColor(), osg::Vec4(1, 0, 0, 1));
    EXPECT_EQ(text->getText().createUTF8EncodedString(), "12.5 mm");
}

TEST(ClipPlaneTest, LiesAcrossTheThinnestDirection)
{
    osg::BoundingBox box(0, 0, 0, 4, 1, 2);
    osg::ref_ptr<osg::Node> node = CommonModel::createClipPlane(box);
    auto* placed = dynamic_cast<osg::MatrixTransform*>(node.get());
    ASSERT_NE(placed, nullptr);
    EXPECT_EQ(placed->getMatrix().getTrans(), osg::Vec3d(2, 0.5, 1));
    const osg::Vec3d normal = osg::Matrix::transform3x3(osg::Vec3d(0, 0, 1), placed->getMatrix());
    EXPECT_NEAR(std::fabs(normal.y()), 1.0, 1e-9);

    // Switch: the enabled parts shown, the disabled copy hidden.
    auto* toggle = dynamic_cast<osg::Switch*>(placed->getChild(0));
    ASSERT_NE(toggle, nullptr);
    ASSERT_EQ(toggle->getNumChildren(), 2u);
    EXPECT_TRUE(toggle->getValue(0));
    EXPECT_FALSE(toggle->getValue(1));
    // The plane spans the two other sides of the box: 4 by 2.
    osg::Node* plane = toggle->getChild(0)->asGroup()->getChild(0);
    EXPECT_EQ(plane->getNodeMask(), 65535u);
    const osg::BoundingBox local = plane->asGeode()->getDrawable(0)->getBoundingBox();
    EXPECT_FLOAT_EQ(local.xMax() - local.xMin() + local.yMax() - local.yMin(), 6.0f);
    EXPECT_FLOAT_EQ(local.zMax() - local.zMin(), 0.0f);
}

TEST(ClipPlaneTest, GroupFormUsesTheActiveChildrensBounds)
{
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(CommonModel::createShpere(osg::Vec3f(10, 0, 0), 1.0f, osg::Vec4f(1, 1, 1, 1)));
    osg::ref_ptr<osg::Node> node = createClipPlane(group.get());
    auto* placed = dynamic_cast<osg::MatrixTransform*>(node.get());
    ASSERT_NE(placed, nullptr);
    EXPECT_NEAR(placed->getMatrix().getTrans().x(), 10.0, 1e-4);
    EXPECT_EQ(createClipPlane(static_cast<osg::Group*>(nullptr)), nullptr);
}
