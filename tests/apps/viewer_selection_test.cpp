// The viewer's selection on a loaded point file: a scripted lasso, the selected colour on
// screen, deletion, and undo back to the states the file was opened with.
#include "model_reader.h"
#include "undo_history.h"
#include "viewer_selection.h"

#include "canvas3d_item.h"
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "orvane_singleton.h"
#include "render_info.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>
#include <gtest/gtest.h>

#include <cmath>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;

namespace {

// Pixels of the canvas in the selected colour's hue: strong red, some green, little blue.
int selectedColourPixels(const QImage& image, int x0 = 0, int x1 = CanvasWindow::kCanvasWidth)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = x0; x < x1 && x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            // Lighting scales the row's colour; its hue stays orange.
            if (c.red() > 90 && c.green() > c.red() * 0.3 && c.green() < c.red() * 0.8 &&
                c.blue() < c.red() * 0.25)
                ++count;
        }
    return count;
}

class ViewerSelectionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        const QString path = dir.filePath("grid.xyz");
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Text));
        QTextStream out(&file);
        // A dense grid of points facing the camera, with normals towards it.
        for (int j = 0; j < 60; ++j)
            for (int i = 0; i < 80; ++i)
                out << (-1.6 + 0.04 * i) << ' ' << (-1.2 + 0.04 * j) << " 0 0 0 1\n";
        file.close();
        LoadedModel model = loadModel(path);
        ASSERT_TRUE(model.node) << model.error.toStdString();
        node = model.node;

        ASSERT_TRUE(w.show());
        ASSERT_TRUE(w.run(OrvaneSingleton::instance()->addGroup(new osg::Group)));
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(node.get());
        }));
        selection.reset(new ViewerSelection(&history));
        selection->install(w.item()->getCanvasBase());
        ASSERT_TRUE(w.lookAt(osg::Vec3d(0, 0, 5), osg::Vec3d(), osg::Vec3d(0, 1, 0)));
    }

    std::vector<signed char> states()
    {
        std::vector<signed char> out;
        w.run(nullptr, [&](RenderInfo&) {
            for (const auto& target : selection->targets())
                out.insert(out.end(), target.states->begin(), target.states->end());
        });
        return out;
    }

    QTemporaryDir dir;
    osg::ref_ptr<osg::Node> node;
    CanvasWindow w;
    UndoHistory history;
    std::unique_ptr<ViewerSelection> selection;
};

TEST_F(ViewerSelectionTest, SelectDeleteAndUndoGiveBackTheOriginalStates)
{
    // A loop over the left half of the canvas.
    std::vector<osg::Vec2d> lasso;
    for (int k = 0; k < 40; ++k) {
        const double a = 2.0 * M_PI * k / 40;
        lasso.emplace_back(45.0 + 35.0 * std::cos(a), 60.0 + 40.0 * std::sin(a));
    }
    bool changed = false;
    ASSERT_TRUE(w.run(
        nullptr, [&](RenderInfo& info) { changed = selection->selectPolygon(info, lasso, true); }));
    ASSERT_TRUE(changed);
    const std::vector<signed char> selected = states();
    ASSERT_EQ(selected.size(), 4800u);
    const int count = static_cast<int>(std::count(selected.begin(), selected.end(), 1));
    EXPECT_GT(count, 300);
    EXPECT_EQ(count + std::count(selected.begin(), selected.end(), 0), 4800);
    EXPECT_EQ(selection->selectedCountNow(), count);
    EXPECT_TRUE(OrvaneTest::waitUntil([&] { return selection->selectedCount() == count; }));

    // The selected points show the selected row; the right half shows none of it.
    QImage image;
    const int shown = w.settle(
        [&](const QImage& grabbed) {
            image = grabbed;
            return selectedColourPixels(grabbed) > 100 ? 1 : 0;
        },
        1);
    EXPECT_EQ(shown, 1) << "selected colour pixels: " << selectedColourPixels(image);
    EXPECT_EQ(selectedColourPixels(image, 90, CanvasWindow::kCanvasWidth), 0);

    // Delete: the selection becomes -1.
    // Delete, as the key reaches the canvas's view.
    w.item()->eventQueue()->keyPress(osgGA::GUIEventAdapter::KEY_Delete);
    w.item()->frame();
    std::vector<signed char> deleted;
    EXPECT_TRUE(OrvaneTest::waitUntil([&] {
        deleted = states();
        return std::count(deleted.begin(), deleted.end(), -1) > 0;
    }));
    EXPECT_EQ(std::count(deleted.begin(), deleted.end(), -1), count);
    EXPECT_EQ(std::count(deleted.begin(), deleted.end(), 1), 0);

    // Undo both steps, as Ctrl+Z does on the render thread.
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
        EXPECT_TRUE(history.undo());
        EXPECT_TRUE(history.undo());
    }));
    EXPECT_EQ(states(), std::vector<signed char>(4800, 0));
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { EXPECT_TRUE(history.redo()); }));
    EXPECT_EQ(states(), selected);

    // Clearing (Esc) is a step too.
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { EXPECT_TRUE(selection->clearNow()); }));
    EXPECT_EQ(states(), std::vector<signed char>(4800, 0));
    EXPECT_EQ(history.nextUndoName(), "clear selection");
}

} // namespace

namespace {

TEST_F(ViewerSelectionTest, ShiftDragDrawsARectangleThatSelectsWhatIsVisible)
{
    osgGA::EventQueue* events = w.item()->eventQueue();
    // Item pixels, rows from the top: a rectangle over the left half of the canvas.
    events->getCurrentEventState()->setModKeyMask(osgGA::GUIEventAdapter::MODKEY_LEFT_SHIFT);
    events->mouseMotion(10, 20);
    w.item()->frame();
    ASSERT_TRUE(w.run(nullptr));
    ASSERT_TRUE(w.run(nullptr)); // a frame with the depth read for the selection
    events->mouseButtonPress(10, 20, 1);
    events->mouseMotion(40, 60);
    events->mouseMotion(70, 100);
    events->mouseButtonRelease(70, 100, 1);
    w.item()->frame();
    std::vector<signed char> now;
    EXPECT_TRUE(OrvaneTest::waitUntil([&] {
        w.run(nullptr);
        now = states();
        return std::count(now.begin(), now.end(), 1) > 0;
    }));
    EXPECT_EQ(history.nextUndoName(), "selection");
    // Nothing right of the rectangle was taken.
    w.run(nullptr, [&](RenderInfo& info) {
        osg::Camera* camera = info.mainView()->getCamera();
        const osg::Matrixd toWindow = camera->getViewMatrix() * camera->getProjectionMatrix() *
                                      camera->getViewport()->computeWindowMatrix();
        const auto& target = selection->targets().front();
        auto* vertices = static_cast<osg::Vec3Array*>(target.geometry->getVertexArray());
        for (std::size_t i = 0; i < vertices->size(); ++i) {
            const osg::Vec3d win = osg::Vec3d((*vertices)[i]) * toWindow;
            if (win.x() > 72.0)
                EXPECT_EQ((*target.states)[i], 0) << "point " << i;
        }
    });
}

} // namespace
