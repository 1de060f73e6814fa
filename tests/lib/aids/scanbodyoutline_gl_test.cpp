// The scan body outline on a live canvas: a request draws one offscreen frame of the line models
// and hands its picture to the receiver; nothing more is drawn until the next request.
#include "canvas3d_item.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "scanbodyoutline.h"

#include <QColor>
#include <QPoint>
#include <gtest/gtest.h>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/Program>
#include <vector>

using namespace Vorna::Orvane;
using OrvaneTest::LogCapture;
using OrvaneTest::waitUntil;

namespace {

class OutlineReceiver : public QObject
{
    Q_OBJECT
public:
    struct Picture {
        int sequence;
        int width;
        int height;
        std::vector<unsigned char> rgba;
    };
    std::vector<Picture> pictures;

    Q_INVOKABLE void onDrawScanBodyOutLine(int sequence, void* data, int width, int height)
    {
        const auto* bytes = static_cast<const unsigned char*>(data);
        pictures.push_back({sequence, width, height,
                            std::vector<unsigned char>(bytes, bytes + size_t(width) * height * 4)});
        ScanBodyOutLine::freeImage(data);
    }
};

// 64 by 48 pixels, 30-degree field from (0, 0, 5): 48 / (2 * 5 * tan 15) = 17.9 pixels per unit.
constexpr unsigned kWidth = 64;
constexpr unsigned kHeight = 48;
constexpr double kPixelsPerUnit = 17.91;

// A square of side 2 in z = 0 drawn as a line loop, in the colour of "uniformColor".
osg::ref_ptr<osg::MatrixTransform> squareModel()
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    auto* vertices = new osg::Vec3Array;
    for (const osg::Vec3& p :
         {osg::Vec3(-1, -1, 0), osg::Vec3(1, -1, 0), osg::Vec3(1, 1, 0), osg::Vec3(-1, 1, 0)})
        vertices->push_back(p);
    geometry->setVertexArray(vertices);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_LINE_LOOP, 0, 4));
    auto* program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, R"(#version 410 compatibility
uniform mat4 osg_ModelViewProjectionMatrix;
void main() { gl_Position = osg_ModelViewProjectionMatrix * gl_Vertex; }
)"));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, R"(#version 410 compatibility
uniform vec4 uniformColor = vec4(0.0, 0.0, 1.0, 1.0);
out vec4 fragColor;
void main() { fragColor = uniformColor; }
)"));
    osg::StateSet* ss = geometry->getOrCreateStateSet();
    ss->setAttributeAndModes(program, osg::StateAttribute::ON);
    ss->setAttributeAndModes(new osg::LineWidth(1.5f), osg::StateAttribute::ON);
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    osg::ref_ptr<osg::MatrixTransform> line = new osg::MatrixTransform;
    line->setName("mtLine");
    line->addChild(geode);
    osg::ref_ptr<osg::MatrixTransform> model = new osg::MatrixTransform;
    model->addChild(line);
    return model;
}

class ScanBodyOutLineTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_canvas.show());
        m_receiver = new OutlineReceiver;
        m_outline = new ScanBodyOutLine(m_receiver, canvas(), nullptr);
    }
    void TearDown() override
    {
        // The outline is the receiver's child; it takes its camera out while the canvas lives.
        delete m_receiver;
        m_canvas.window().item()->frame();
        m_canvas.close();
    }

    CanvasBase* canvas() { return m_canvas.window().item()->getCanvasBase(); }

    // Draws scene frames until `count` have passed.
    void passFrames(int count)
    {
        const int start = m_canvas.window().sceneFrames();
        EXPECT_TRUE(waitUntil([&] {
            m_canvas.window().item()->frame();
            return m_canvas.window().sceneFrames() >= start + count;
        }));
    }

    bool setUpOutline()
    {
        m_outline->setDimension(kWidth, kHeight);
        if (!m_outline->setCameraProjectParam(30.0, 1.0, 100.0))
            return false;
        m_outline->lookAt(osg::Vec3d(0, 0, 5), osg::Vec3d(), osg::Vec3d(0, 1, 0));
        m_outline->addLineModel(squareModel());
        return m_outline->init();
    }

    bool awaitPictures(size_t count)
    {
        return waitUntil([&] {
            m_canvas.window().item()->frame();
            return m_receiver->pictures.size() >= count;
        });
    }

    static QColor pixel(const OutlineReceiver::Picture& p, int x, int row)
    {
        const unsigned char* c = &p.rgba[(size_t(row) * p.width + x) * 4];
        return QColor(c[0], c[1], c[2], c[3]);
    }

    // Whether a pixel within one of (x, row) has the colour: the line is 1.5 pixels wide and
    // rasterisation decides which side of the exact edge it lands on.
    static bool lineNear(const OutlineReceiver::Picture& p, int x, int row, const QColor& c)
    {
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx)
                if (OrvaneTest::near(pixel(p, x + dx, row + dy), c, 2))
                    return true;
        return false;
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    OutlineReceiver* m_receiver = nullptr;
    ScanBodyOutLine* m_outline = nullptr;
};

TEST_F(ScanBodyOutLineTest, OneRequestOnePictureOfTheSquare)
{
    LogCapture log;
    ASSERT_TRUE(setUpOutline());
    EXPECT_TRUE(log.contains("init success"));
    m_outline->modifyLineColor(0, osg::Vec3f(1, 0, 0));
    ASSERT_TRUE(m_outline->drawOneFrame());
    ASSERT_TRUE(awaitPictures(1));
    passFrames(5);
    ASSERT_EQ(m_receiver->pictures.size(), 1u);

    const OutlineReceiver::Picture& p = m_receiver->pictures.front();
    EXPECT_EQ(p.sequence, 1);
    ASSERT_EQ(p.width, int(kWidth));
    ASSERT_EQ(p.height, int(kHeight));
    ASSERT_EQ(p.rgba.size(), size_t(kWidth) * kHeight * 4);
    const int cx = kWidth / 2;
    const int cy = kHeight / 2;
    const int edge = int(kPixelsPerUnit + 0.5);
    const QColor red(255, 0, 0, 255);
    // The middle of each side and a point a third along it.
    EXPECT_TRUE(lineNear(p, cx - edge, cy, red));
    EXPECT_TRUE(lineNear(p, cx + edge - 1, cy, red));
    EXPECT_TRUE(lineNear(p, cx, cy - edge, red));
    EXPECT_TRUE(lineNear(p, cx, cy + edge - 1, red));
    EXPECT_TRUE(lineNear(p, cx - 6, cy + edge - 1, red));
    // Background inside the square and outside it: the clear colour, transparent black.
    const QColor clear(0, 0, 0, 0);
    for (const QPoint& at : {QPoint(cx, cy), QPoint(cx + 8, cy - 8), QPoint(2, 2),
                             QPoint(kWidth - 3, kHeight - 3), QPoint(cx, 2)})
        EXPECT_TRUE(OrvaneTest::near(pixel(p, at.x(), at.y()), clear, 0) &&
                    pixel(p, at.x(), at.y()).alpha() == 0)
            << "at (" << at.x() << ", " << at.y() << ")";
}

TEST_F(ScanBodyOutLineTest, EachRequestDrawsOnce)
{
    ASSERT_TRUE(setUpOutline());
    ASSERT_TRUE(m_outline->drawOneFrame());
    ASSERT_TRUE(awaitPictures(1));
    passFrames(5);
    EXPECT_EQ(m_receiver->pictures.size(), 1u);
    ASSERT_TRUE(m_outline->drawOneFrame());
    ASSERT_TRUE(awaitPictures(2));
    passFrames(5);
    ASSERT_EQ(m_receiver->pictures.size(), 2u);
    EXPECT_EQ(m_receiver->pictures[1].sequence, 2);
    // The default line colour of the model's program.
    const OutlineReceiver::Picture& p = m_receiver->pictures[1];
    EXPECT_TRUE(
        lineNear(p, kWidth / 2 - int(kPixelsPerUnit + 0.5), kHeight / 2, QColor(0, 0, 255, 255)));
}

TEST_F(ScanBodyOutLineTest, NewSizeAndViewTakeEffectOnTheNextRequest)
{
    ASSERT_TRUE(setUpOutline());
    ASSERT_TRUE(m_outline->drawOneFrame());
    ASSERT_TRUE(awaitPictures(1));
    // Half the size, and the square moved to the right half by looking left of it.
    m_outline->setDimension(kWidth / 2, kHeight / 2);
    m_outline->lookAt(osg::Vec3d(-1, 0, 5), osg::Vec3d(-1, 0, 0), osg::Vec3d(0, 1, 0));
    ASSERT_TRUE(m_outline->drawOneFrame());
    ASSERT_TRUE(awaitPictures(2));
    const OutlineReceiver::Picture& p = m_receiver->pictures[1];
    ASSERT_EQ(p.width, int(kWidth / 2));
    ASSERT_EQ(p.height, int(kHeight / 2));
    // 8.96 pixels per unit now; the square's left side runs up the centre column, its top side
    // 9 rows above the centre row, and nothing lies left of the centre.
    const int cx = int(kWidth / 4), cy = int(kHeight / 4);
    const QColor blue(0, 0, 255, 255);
    EXPECT_TRUE(lineNear(p, cx, cy, blue));
    EXPECT_TRUE(lineNear(p, cx + 9, cy + 9, blue));
    EXPECT_FALSE(lineNear(p, cx - 9, cy, blue));
}

TEST_F(ScanBodyOutLineTest, NothingDrawnWithoutLineModels)
{
    ASSERT_TRUE(m_outline->init());
    ASSERT_TRUE(m_outline->drawOneFrame());
    passFrames(5);
    EXPECT_TRUE(m_receiver->pictures.empty());
}

TEST_F(ScanBodyOutLineTest, BadCallsAreLoggedAndRefused)
{
    LogCapture log;
    EXPECT_FALSE(m_outline->drawOneFrame());
    EXPECT_TRUE(log.contains("haven't inited"));
    EXPECT_FALSE(m_outline->setCameraProjectParam(0.0, 1.0, 10.0));
    EXPECT_TRUE(log.contains("fovy <= 0"));
    m_outline->release();
    EXPECT_TRUE(log.contains("already released"));

    ASSERT_TRUE(setUpOutline());
    EXPECT_TRUE(m_outline->init());
    EXPECT_TRUE(log.contains("already inited"));
    m_outline->modifyLineColor(3, osg::Vec3f(1, 1, 1));
    EXPECT_TRUE(waitUntil([&] {
        m_canvas.window().item()->frame();
        return log.contains("modifyLineColor - invalid index: ");
    }));

    ScanBodyOutLine orphan(nullptr, canvas(), nullptr);
    EXPECT_FALSE(orphan.init());
    EXPECT_TRUE(log.contains("m_msgRecver is null"));
    ScanBodyOutLine noCanvas(m_receiver, nullptr, nullptr);
    EXPECT_FALSE(noCanvas.init());
    EXPECT_TRUE(log.contains("m_canvas is null"));

    m_outline->release();
    EXPECT_TRUE(log.contains("release success"));
}

} // namespace

#include "scanbodyoutline_gl_test.moc"
