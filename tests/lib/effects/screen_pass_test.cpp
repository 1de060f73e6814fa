// The FXAA and denoise rectangles as built: names, quad, state and callbacks.
#include "denoise_tool.h"
#include "fxaa_tool.h"

#include <gtest/gtest.h>
#include <osg/Depth>
#include <osg/Geometry>

using namespace Vorna::Orvane;

namespace {

osg::Geometry* rectOf(osg::Geode* geode)
{
    return geode && geode->getNumDrawables() == 1 ? geode->getDrawable(0)->asGeometry() : nullptr;
}

void expectScreenQuad(osg::Geometry* rect, osg::Program* program)
{
    ASSERT_NE(rect, nullptr);
    auto* vertices = dynamic_cast<osg::Vec3Array*>(rect->getVertexAttribArray(0));
    auto* coords = dynamic_cast<osg::Vec2Array*>(rect->getVertexAttribArray(1));
    ASSERT_NE(vertices, nullptr);
    ASSERT_NE(coords, nullptr);
    EXPECT_EQ(std::vector<osg::Vec3>(vertices->begin(), vertices->end()),
              std::vector<osg::Vec3>({{-1, 1, 0}, {1, 1, 0}, {1, -1, 0}, {-1, -1, 0}}));
    EXPECT_EQ(std::vector<osg::Vec2>(coords->begin(), coords->end()),
              std::vector<osg::Vec2>({{0, 1}, {1, 1}, {1, 0}, {0, 0}}));
    ASSERT_EQ(rect->getNumPrimitiveSets(), 1u);
    EXPECT_EQ(rect->getPrimitiveSet(0)->getNumIndices(), 6u);
    EXPECT_FALSE(rect->getUseDisplayList());
    EXPECT_TRUE(rect->getUseVertexBufferObjects());

    osg::StateSet* ss = rect->getStateSet();
    ASSERT_NE(ss, nullptr);
    EXPECT_EQ(ss->getAttribute(osg::StateAttribute::PROGRAM), program);
    int unit = -1;
    ASSERT_NE(ss->getUniform("tex"), nullptr);
    ss->getUniform("tex")->get(unit);
    EXPECT_EQ(unit, 0);
    auto* depth = dynamic_cast<osg::Depth*>(ss->getAttribute(osg::StateAttribute::DEPTH));
    ASSERT_NE(depth, nullptr);
    EXPECT_EQ(depth->getFunction(), osg::Depth::ALWAYS);
    EXPECT_FALSE(depth->getWriteMask());
    EXPECT_EQ(ss->getMode(GL_BLEND), osg::StateAttribute::ON);
    // Never part of a fit, never culled.
    EXPECT_FALSE(rect->getBoundingBox().valid());
    EXPECT_FALSE(rect->getCullingActive());
}

TEST(ScreenPassTest, FxaaNode)
{
    osg::ref_ptr<osg::Geode> node = FXAATool::createFXAANode();
    ASSERT_TRUE(node.valid());
    EXPECT_EQ(node->getName(), "fxaa_rect");
    expectScreenQuad(rectOf(node.get()), FXAATool::program());
    EXPECT_NE(dynamic_cast<FxAANodeDrawCallback*>(rectOf(node.get())->getDrawCallback()), nullptr);
    // One program for all nodes.
    EXPECT_EQ(FXAATool::program(), FXAATool::program());
}

TEST(ScreenPassTest, DenoiseNodeCarriesItsThresholds)
{
    osg::ref_ptr<osg::Geode> node = DenoiseTool::createScreenDenoiseNode();
    ASSERT_TRUE(node.valid());
    EXPECT_EQ(node->getName(), "denoise_rect");
    expectScreenQuad(rectOf(node.get()), DenoiseTool::program());
    EXPECT_NE(
        dynamic_cast<DenoiseTool::DenoiseNodeDrawCallback*>(rectOf(node.get())->getDrawCallback()),
        nullptr);
    osg::StateSet* ss = node->getStateSet();
    ASSERT_NE(ss, nullptr);
    float threshold = 0.0f;
    int diffCount = 0;
    ASSERT_NE(ss->getUniform("threshold"), nullptr);
    ASSERT_NE(ss->getUniform("diffCount"), nullptr);
    ss->getUniform("threshold")->get(threshold);
    ss->getUniform("diffCount")->get(diffCount);
    EXPECT_FLOAT_EQ(threshold, 0.25f);
    EXPECT_EQ(diffCount, 18);
}

} // namespace
