// The façade against a live canvas: where nodes land, which uniforms appear, views and flags.
#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "customize_manipulator.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>
#include <osg/Switch>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

OrvaneSingleton* facade()
{
    return OrvaneSingleton::instance();
}

bool hasChild(osg::Group* group, osg::Node* node)
{
    return group && group->getChildIndex(node) < group->getNumChildren();
}

template <typename T> T uniformValue(osg::Node* node, const char* name)
{
    T value{};
    if (node->getStateSet() && node->getStateSet()->getUniform(name))
        node->getStateSet()->getUniform(name)->get(value);
    return value;
}

osg::ref_ptr<osg::Vec3Array> quad()
{
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (const osg::Vec3& p :
         {osg::Vec3(-0.5f, -0.5f, 0), osg::Vec3(0.5f, -0.5f, 0), osg::Vec3(0.5f, 0.5f, 0),
          osg::Vec3(-0.5f, -0.5f, 0), osg::Vec3(0.5f, 0.5f, 0), osg::Vec3(-0.5f, 0.5f, 0)})
        v->push_back(p);
    return v;
}

osg::Array* const kNoColors = nullptr;

} // namespace

class FacadeTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(w.show()); }
    osgViewer::View* mainView() const { return w.item()->mainView(); }

    CanvasWindow w;
};

TEST_F(FacadeTest, OperationsDoNothingUntilAddedAndLandInTheirGroups)
{
    RefGroup model = new osg::Group, transparent = new osg::Group;
    RefNode aid = new osg::Group;
    osg::ref_ptr<osg::Operation> pending = facade()->addGroup(model);
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_FALSE(hasChild(ViewMgr::getModel(mainView()), model.get()));

    ASSERT_TRUE(w.run(pending.get()));
    ASSERT_TRUE(w.run(facade()->addTransGroup(transparent)));
    ASSERT_TRUE(w.run(facade()->addToOther(aid)));
    EXPECT_TRUE(hasChild(ViewMgr::getModel(mainView()), model.get()));
    EXPECT_TRUE(hasChild(ViewMgr::getTransModel(mainView()), transparent.get()));
    EXPECT_TRUE(hasChild(ViewMgr::getOther(mainView()), aid.get()));

    osg::ref_ptr<osg::Operation> remove = facade()->removeNode({model, aid, nullptr});
    ASSERT_TRUE(w.run(remove.get()));
    EXPECT_EQ(model->getNumParents(), 0u);
    EXPECT_EQ(aid->getNumParents(), 0u);
    OrvaneTest::LogCapture log;
    ASSERT_TRUE(w.run(facade()->removeNode({model})));
    EXPECT_TRUE(log.contains("node hasn't parent when remove"));
}

TEST_F(FacadeTest, LivesOnTheApplicationThreadWhoeverMadeItFirst)
{
    // The canvas's renderer asks for it first, on the render thread.
    EXPECT_EQ(facade()->getCanvas(), w.item()->getCanvasBase());
    EXPECT_EQ(facade()->thread(), QCoreApplication::instance()->thread());
}

TEST_F(FacadeTest, ForeignViewsAreRefused)
{
    OrvaneTest::LogCapture log;
    osg::ref_ptr<osgViewer::View> foreign = new osgViewer::View;
    RefGroup group = new osg::Group;
    ASSERT_TRUE(w.run(facade()->addGroup(group, foreign.get())));
    EXPECT_TRUE(log.contains("view isn't create by ViewMgr"));
    EXPECT_EQ(group->getNumParents(), 0u);
}

TEST_F(FacadeTest, ShaderGivenToAGroupDrawsItsMesh)
{
    const std::map<osg::Shader::Type, QByteArray> sources{
        {osg::Shader::VERTEX, "#version 410 core\nlayout(location = 0) in vec3 vPosition;\n"
                              "void main() { gl_Position = vec4(vPosition, 1.0); }\n"},
        {osg::Shader::FRAGMENT, "#version 410 core\nout vec4 color;\n"
                                "void main() { color = vec4(0.0, 1.0, 0.0, 1.0); }\n"}};
    facade()->addShader("facade_test_green", sources);
    RefGroup group = new osg::Group;
    group->addChild(Mesh::create(quad().get(), nullptr, kNoColors));
    w.item()->setClearColor(Qt::black);
    ASSERT_TRUE(w.run(facade()->addGroup(group)));
    ASSERT_TRUE(w.run(facade()->setGroupShader(group, "facade_test_green")));
    EXPECT_TRUE(group->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
    EXPECT_TRUE(waitUntil([&] {
        return w.grab().pixelColor(CanvasWindow::kCanvasWidth / 2, CanvasWindow::kHeight / 2) ==
               QColor(Qt::green);
    }));
}

TEST(FacadeInvokableTest, AddShaderIsCalledThroughTheMetaObjectLikeTheOtherInvokables)
{
    using Sources = std::map<osg::Shader::Type, QByteArray>;
    const Sources sources{{osg::Shader::FRAGMENT, "#version 410 core\nout vec4 c;\n"
                                                  "void main() { c = vec4(1.0); }\n"}};
    const std::string name = "facade_test_invoked";
    OrvaneTest::LogCapture log;
    auto invoke = [&](bool& result) {
        return QMetaObject::invokeMethod(
            facade(), "addShader", Qt::DirectConnection, Q_RETURN_ARG(bool, result),
            QArgument<std::string>("std::string", name),
            QArgument<Sources>("std::map<osg::Shader::Type,QByteArray>", sources));
    };
    bool added = false;
    ASSERT_TRUE(invoke(added));
    EXPECT_TRUE(added);
    osg::Program* program = facade()->getShaderMgr()->getShader(name);
    ASSERT_NE(program, nullptr);
    ASSERT_EQ(program->getNumShaders(), 1u);
    EXPECT_EQ(program->getShader(0)->getType(), osg::Shader::FRAGMENT);
    // A second program of the same name is refused, and the first stays.
    bool again = true;
    ASSERT_TRUE(invoke(again));
    EXPECT_FALSE(again);
    EXPECT_TRUE(log.contains("Already existing shader with the same shader name"));
    EXPECT_EQ(facade()->getShaderMgr()->getShader(name), program);
}

TEST_F(FacadeTest, UniformsHaveTheirTypesAndReplaceOnesOfTheSameName)
{
    RefGroup group = new osg::Group;
    ASSERT_TRUE(w.run(facade()->setGamma(group, 1.3f)));
    ASSERT_TRUE(w.run(facade()->setGamma(group, 2.2f)));
    EXPECT_FLOAT_EQ(uniformValue<float>(group.get(), "gamma"), 2.2f);
    EXPECT_EQ(group->getStateSet()->getUniformList().size(), 1u);

    ASSERT_TRUE(w.run(facade()->enableGamma(group, true)));
    EXPECT_EQ(group->getStateSet()->getUniform("enableGamma")->getType(), osg::Uniform::INT);
    EXPECT_EQ(uniformValue<int>(group.get(), "enableGamma"), 1);
    ASSERT_TRUE(w.run(facade()->setSmooth(group, true)));
    EXPECT_EQ(group->getStateSet()->getUniform("useSmooth")->getType(), osg::Uniform::BOOL);
    ASSERT_TRUE(w.run(facade()->setColorMode(group, 2)));
    EXPECT_EQ(uniformValue<int>(group.get(), "colorMode"), 2);
    ASSERT_TRUE(w.run(facade()->setContrastDynamicLight(group, 0.7f)));
    EXPECT_FLOAT_EQ(uniformValue<float>(group.get(), "diffBase"), 0.7f);
    ASSERT_TRUE(w.run(facade()->setGroupUniform(group, Mesh::Front, osg::Vec3f(1, 0.5f, 0))));
    EXPECT_EQ(uniformValue<osg::Vec3f>(group.get(), "front"), osg::Vec3f(1, 0.5f, 0));

    RefMT mt = new osg::MatrixTransform;
    ASSERT_TRUE(w.run(facade()->setCutSelectIndex(mt, 3)));
    EXPECT_EQ(mt->getStateSet()->getUniform("selectIndex")->getType(), osg::Uniform::FLOAT);
    EXPECT_FLOAT_EQ(uniformValue<float>(mt.get(), "selectIndex"), 3.0f);

    // An existing alpha is set in place: whoever holds the uniform sees the change.
    ASSERT_TRUE(w.run(facade()->setAlpha(mt, 0.5f)));
    osg::Uniform* alpha = mt->getStateSet()->getUniform("alpha");
    ASSERT_TRUE(w.run(facade()->setAlpha(mt, 0.25f)));
    EXPECT_EQ(mt->getStateSet()->getUniform("alpha"), alpha);
    EXPECT_FLOAT_EQ(uniformValue<float>(mt.get(), "alpha"), 0.25f);
}

TEST_F(FacadeTest, BackMaterialIsAMatrixOfColumnsAndTheFrontFormBuildsNothing)
{
    RefGroup group = new osg::Group;
    EXPECT_EQ(facade()->setSplitPhongMaterial(group, {0.1f, 0.2f, 0.3f, 1}, {0.4f, 0.5f, 0.6f, 1},
                                              {0.7f, 0.8f, 0.9f, 1}, 5.0f, true),
              nullptr);
    ASSERT_TRUE(w.run(facade()->setSplitPhongMaterial(
        group, {0.1f, 0.2f, 0.3f, 1}, {0.4f, 0.5f, 0.6f, 1}, {0.7f, 0.8f, 0.9f, 1}, 5.0f)));
    osg::Matrixf material;
    group->getStateSet()->getUniform("uBackMaterial")->get(material);
    // Memory order is what GLSL reads column by column.
    const float* m = material.ptr();
    EXPECT_FLOAT_EQ(m[0], 0.1f);
    EXPECT_FLOAT_EQ(m[5], 0.5f);
    EXPECT_FLOAT_EQ(m[10], 0.9f);
    EXPECT_FLOAT_EQ(m[12], 5.0f);
}

TEST_F(FacadeTest, LightIndexTableAndComponentSetters)
{
    OrvaneTest::LogCapture log;
    EXPECT_EQ(OrvaneSingleton::getLightParamUniformName(-1), "lightBkParam");
    EXPECT_EQ(OrvaneSingleton::getLightParamUniformName(0), "lightParam");
    EXPECT_EQ(OrvaneSingleton::getLightParamUniformName(4), "light4Param");
    EXPECT_EQ(OrvaneSingleton::getLightDirectionUniformName(-1), "lightBkDirection");
    EXPECT_EQ(OrvaneSingleton::getLightDirectionUniformName(2), "light2Direction");
    EXPECT_TRUE(OrvaneSingleton::getLightParamUniformName(5).empty());
    EXPECT_TRUE(log.contains("unsupport light index: 5"));

    RefGroup group = new osg::Group;
    ASSERT_TRUE(w.run(facade()->setAmbFactor(group, 0.1f, 1)));
    ASSERT_TRUE(w.run(facade()->setDiffFactor(group, 0.2f, 1)));
    ASSERT_TRUE(w.run(facade()->setSpecFactor(group, 0.3f, 1)));
    ASSERT_TRUE(w.run(facade()->setShininess(group, 9.0f, 1)));
    EXPECT_EQ(uniformValue<osg::Vec4f>(group.get(), "light1Param"),
              osg::Vec4f(0.1f, 0.2f, 0.3f, 9.0f));
    ASSERT_TRUE(w.run(facade()->setLightDirection(group, osg::Vec3f(0, 0, 1), -1)));
    EXPECT_EQ(uniformValue<osg::Vec3f>(group.get(), "lightBkDirection"), osg::Vec3f(0, 0, 1));
    ASSERT_TRUE(w.run(facade()->setAmbFactor(group, 0.5f, 7)));
    EXPECT_EQ(group->getStateSet()->getUniformList().size(), 2u);
}

TEST_F(FacadeTest, AddViewAddsItsHiddenViewOnceAndRemoveViewTakesBothAway)
{
    osg::ref_ptr<osgViewer::View> second;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        second = ViewMgr::createView(info.masterCamera()->getGraphicsContext(),
                                     new osg::Viewport(0, 0, 40, 30));
    }));
    unsigned int views = 0;
    const auto countViews = [&](RenderInfo& info) { views = info.compViewer()->getNumViews(); };
    OrvaneTest::LogCapture log;
    ASSERT_TRUE(w.run(facade()->addView(second.get()), countViews));
    EXPECT_EQ(views, 4u);
    // No space-mouse device on this platform: the wiring stops at the manager's report.
    EXPECT_TRUE(log.contains("subview pSpaceMouse initialization start"));
    EXPECT_TRUE(log.contains("pSpaceMouse initialization failed"));
    ASSERT_TRUE(w.run(facade()->addView(second.get()), countViews));
    EXPECT_EQ(views, 4u);
    EXPECT_TRUE(log.contains("view is exist in CompositeViewer when addView, so return"));

    ASSERT_TRUE(w.run(facade()->removeView(second.get()), countViews));
    EXPECT_EQ(views, 2u);
}

TEST_F(FacadeTest, MoveToGroupWithDetachOnlyViewKeepsTheNodeInOtherViews)
{
    osg::ref_ptr<osgViewer::View> second;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        second = ViewMgr::createView(info.masterCamera()->getGraphicsContext(),
                                     new osg::Viewport(0, 0, 40, 30));
    }));
    ASSERT_TRUE(w.run(facade()->addView(second.get())));
    RefNode node = new osg::Group;
    ASSERT_TRUE(w.run(facade()->addGroup(node->asGroup())));
    ASSERT_TRUE(w.run(facade()->addGroup(node->asGroup(), second.get())));
    RefGroup target = new osg::Group;
    ASSERT_TRUE(w.run(facade()->addToOther(target)));

    ASSERT_TRUE(w.run(facade()->moveToGroup(target, node, true, true)));
    EXPECT_FALSE(hasChild(ViewMgr::getModel(mainView()), node.get()));
    EXPECT_TRUE(hasChild(ViewMgr::getModel(second.get()), node.get()));
    EXPECT_TRUE(hasChild(target.get(), node.get()));

    // The plain form detaches it everywhere.
    RefGroup elsewhere = new osg::Group;
    ASSERT_TRUE(w.run(facade()->moveToGroup(elsewhere, node)));
    EXPECT_EQ(node->getNumParents(), 1u);
    EXPECT_TRUE(hasChild(elsewhere.get(), node.get()));
    ASSERT_TRUE(w.run(facade()->removeView(second.get())));
}

TEST_F(FacadeTest, ShowViewHidesTheMainSceneButKeepsTheCamera)
{
    ASSERT_TRUE(w.run(facade()->showView(nullptr, false)));
    EXPECT_EQ(mainView()->getSceneData()->getNodeMask(), 0u);
    EXPECT_NE(mainView()->getCamera()->getNodeMask(), 0u);
    auto* manipulator = dynamic_cast<CustomizeManipulator*>(mainView()->getCameraManipulator());
    EXPECT_FALSE(manipulator->isEnabled());
    EXPECT_FALSE(mainView()->getCamera()->getAllowEventFocus());
    ASSERT_TRUE(w.run(facade()->showView(nullptr, true)));
    EXPECT_EQ(mainView()->getSceneData()->getNodeMask(), ~0u);
    EXPECT_TRUE(manipulator->isEnabled());
}

TEST_F(FacadeTest, ContentUpdatesReplaceArraysAndPrimitives)
{
    RefMT mesh = Mesh::create(quad().get(), nullptr, kNoColors);

    // showNode acts at the call.
    osg::ref_ptr<osg::Operation> op = facade()->showNode({mesh}, false);
    EXPECT_FALSE(static_cast<osg::Switch*>(mesh->getChild(0))->getValue(0));
    osg::ref_ptr<osg::Operation> shown = facade()->showNode({mesh});
    EXPECT_TRUE(static_cast<osg::Switch*>(mesh->getChild(0))->getValue(0));

    osg::ref_ptr<osg::Vec3Array> bigger = quad();
    bigger->insert(bigger->end(), bigger->begin(), bigger->end());
    ASSERT_TRUE(w.run(facade()->updateMesh(mesh, bigger.get(), nullptr, nullptr)));
    osg::Geometry* geometry = DrawableBase::asGeometry(mesh.get());
    ASSERT_EQ(geometry->getNumPrimitiveSets(), 1u);
    EXPECT_EQ(geometry->getPrimitiveSet(0)->getNumIndices(), 12u);

    ASSERT_TRUE(w.run(facade()->setState({mesh}, {std::vector<GLbyte>(6, 2)})));
    auto* states = DrawableBase::getVertexArray<StateArray>(geometry, StateSlot);
    ASSERT_EQ(states->size(), 6u);
    EXPECT_EQ((*states)[5], 2);

    RefMT points = Point::create(quad().get(), nullptr, nullptr);
    ASSERT_TRUE(w.run(facade()->updatePoint(points, bigger.get(), nullptr, nullptr)));
    osg::Geometry* pointGeometry = DrawableBase::asGeometry(points.get());
    EXPECT_EQ(pointGeometry->getPrimitiveSet(0)->getMode(), static_cast<GLenum>(GL_POINTS));
    EXPECT_EQ(pointGeometry->getPrimitiveSet(0)->getNumIndices(), 12u);
}

TEST_F(FacadeTest, RenderFinishedCallbackIsAddedOnceAndSignalsEachFrame)
{
    QSignalSpy finished(facade()->renderFinishedCallback()->object(),
                        &RenderFinishedObject::renderFinished);
    ASSERT_TRUE(w.run(facade()->addRenderFinishedCallback(nullptr)));
    ASSERT_TRUE(w.run(facade()->addRenderFinishedCallback(nullptr)));
    int installed = 0;
    for (osg::Callback* c = mainView()->getCamera()->getPostDrawCallback(); c;
         c = c->getNestedCallback())
        installed += dynamic_cast<RenderFinishedCallback*>(c) ? 1 : 0;
    EXPECT_EQ(installed, 1);
    EXPECT_TRUE(waitUntil([&] { return finished.count() > 0; }));

    ASSERT_TRUE(w.run(facade()->removeRenderFinishedCallback(nullptr)));
    QTest::qWait(50);
    const int after = finished.count();
    w.item()->frame();
    QTest::qWait(200);
    EXPECT_EQ(finished.count(), after);
}

TEST_F(FacadeTest, ScanStateFlags)
{
    facade()->getScanStateChanged();
    facade()->updateScanStateNoOpe(true);
    EXPECT_TRUE(facade()->getScanState());
    EXPECT_TRUE(facade()->getScanStateChanged(false));
    EXPECT_FALSE(facade()->getScanStateChanged(false));
    facade()->updateScanStateNoOpe(true);
    EXPECT_FALSE(facade()->getScanStateChanged());

    ASSERT_TRUE(w.run(facade()->updateScanState()));
    EXPECT_FALSE(facade()->getScanState());
    EXPECT_TRUE(facade()->getScanStateChanged());
}

TEST_F(FacadeTest, FitByScreenCoordWritesTheViewRecord)
{
    OrvaneTest::LogCapture log;
    facade()->setFitByScreenCoord(nullptr, true, osg::Vec2f(1, 2));
    EXPECT_TRUE(log.contains("pView pointer is nullptr"));
    osg::ref_ptr<osgViewer::View> foreign = new osgViewer::View;
    facade()->setFitByScreenCoord(foreign.get(), true, osg::Vec2f(1, 2));
    EXPECT_TRUE(log.contains("pViewInfo pointer is nullptr"));
    facade()->setFitByScreenCoord(mainView(), true, osg::Vec2f(10, 20));
    EXPECT_TRUE(ViewMgr::getViewInfo(mainView())->bFitByScreenCoord);
    EXPECT_EQ(ViewMgr::getViewInfo(mainView())->screenCoord, osg::Vec2f(10, 20));
    facade()->setFitByScreenCoord(mainView(), false, osg::Vec2f());
}

TEST_F(FacadeTest, QmlCallsTheShortOverloadsAndAddsTheOperations)
{
    qmlRegisterSingletonInstance("Vorna.Orvane", 1, 0, "Orvane", facade());
    qmlRegisterType<Canvas3DItem>("Vorna.Orvane", 1, 0, "Canvas3DItem");
    QQmlEngine engine;
    RefGroup group = new osg::Group;
    engine.rootContext()->setContextProperty("testGroup", QVariant::fromValue(group));
    engine.rootContext()->setContextProperty("testCanvas", w.item());
    QQmlComponent component(&engine);
    component.setData("import QtQml 2.15\nimport Vorna.Orvane 1.0\nQtObject {\n"
                      "  Component.onCompleted: {\n"
                      "    testCanvas.addOperation(Orvane.addGroup(testGroup))\n"
                      "    testCanvas.addOperation(Orvane.setGamma(testGroup, 1.5))\n"
                      "    testCanvas.addOperation(Orvane.updateScanState())\n"
                      "    Orvane.getScanStateChanged()\n"
                      "  }\n}\n",
                      QUrl());
    std::unique_ptr<QObject> object(component.create());
    ASSERT_TRUE(object) << qPrintable(component.errorString());
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_TRUE(hasChild(ViewMgr::getModel(mainView()), group.get()));
    EXPECT_FLOAT_EQ(uniformValue<float>(group.get(), "gamma"), 1.5f);
}
