// The viewer's readers on small files made here: counts on success, a clear message otherwise.
#include "model_reader.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>

namespace {

class ReaderTest : public ::testing::Test
{
protected:
    QString write(const QString& name, const QByteArray& text)
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
        return path;
    }
    static osg::Geometry* firstGeometry(osg::Node* node)
    {
        osg::Geode* geode = node ? node->asGeode() : nullptr;
        return geode && geode->getNumDrawables() ? geode->getDrawable(0)->asGeometry() : nullptr;
    }

    QTemporaryDir m_dir;
};

} // namespace

TEST_F(ReaderTest, PointListsWithAndWithoutNormalsAndColours)
{
    LoadedModel plain = loadModel(write("a.xyz", "# scan\n0 0 0\n1 2 3\n\n4 5 6\n"));
    ASSERT_TRUE(plain.node) << qPrintable(plain.error);
    EXPECT_EQ(plain.points, 3u);
    EXPECT_FALSE(firstGeometry(plain.node.get())->getNormalArray());

    LoadedModel full = loadModel(write("b.asc", "1 2 3 0 0 1 255 128 0\n4,5,6,0,1,0,0,0,255\n"));
    ASSERT_TRUE(full.node) << qPrintable(full.error);
    osg::Geometry* geometry = firstGeometry(full.node.get());
    EXPECT_EQ(static_cast<osg::Vec3Array*>(geometry->getNormalArray())->at(1), osg::Vec3(0, 1, 0));
    // Colours above 1 are read as 0..255.
    const auto* colors = static_cast<osg::Vec4Array*>(geometry->getColorArray());
    EXPECT_NEAR(colors->at(0).g(), 128.0f / 255.0f, 1e-6f);
    EXPECT_EQ(geometry->getColorBinding(), osg::Array::BIND_PER_VERTEX);
    EXPECT_TRUE(geometry->getUseVertexArrayObject());

    LoadedModel pts = loadModel(write("c.pts", "2\n1 1 1\n2 2 2\n"));
    ASSERT_TRUE(pts.node) << qPrintable(pts.error);
    EXPECT_EQ(pts.points, 2u);
}

TEST_F(ReaderTest, TruncatedGarbageAndEmptyListsGiveAMessage)
{
    LoadedModel truncated = loadModel(write("t.xyz", "0 0 0 0 0 1\n1 1 1 0 0 1\n2 2\n"));
    EXPECT_FALSE(truncated.node);
    EXPECT_TRUE(truncated.error.contains("line 3")) << qPrintable(truncated.error);
    EXPECT_TRUE(truncated.error.contains("truncated")) << qPrintable(truncated.error);

    LoadedModel garbage =
        loadModel(write("g.xyz", QByteArray("\x89PNG\r\n\x1a\n\x01\x02 x y", 13)));
    EXPECT_FALSE(garbage.node);
    EXPECT_TRUE(garbage.error.startsWith("could not read")) << qPrintable(garbage.error);

    EXPECT_FALSE(loadModel(write("e.xyz", "\n# nothing\n")).node);
    EXPECT_FALSE(loadModel(m_dir.filePath("missing.xyz")).node);
    EXPECT_TRUE(loadModel(write("x.foo", "1 2 3")).error.contains("unsupported format"));
}

TEST_F(ReaderTest, MeshesThroughTheSceneGraphReaders)
{
    LoadedModel ply = loadModel(write("m.ply", "ply\nformat ascii 1.0\nelement vertex 3\n"
                                               "property float x\nproperty float y\n"
                                               "property float z\nelement face 1\n"
                                               "property list uchar int vertex_indices\n"
                                               "end_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"));
    ASSERT_TRUE(ply.node) << qPrintable(ply.error);
    EXPECT_EQ(ply.points, 3u);

    LoadedModel cloud = loadModel(write("p.ply", "ply\nformat ascii 1.0\nelement vertex 2\n"
                                                 "property float x\nproperty float y\n"
                                                 "property float z\nend_header\n0 0 0\n1 1 1\n"));
    ASSERT_TRUE(cloud.node) << qPrintable(cloud.error);
    EXPECT_EQ(cloud.points, 2u);

    LoadedModel obj = loadModel(write("m.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"));
    ASSERT_TRUE(obj.node) << qPrintable(obj.error);

    LoadedModel stl = loadModel(write("m.stl", "solid t\nfacet normal 0 0 1\nouter loop\n"
                                               "vertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\n"
                                               "endloop\nendfacet\nendsolid t\n"));
    ASSERT_TRUE(stl.node) << qPrintable(stl.error);

    LoadedModel broken = loadModel(write("b.ply", "ply\nformat ascii 1.0\nelement vertex 1000\n"
                                                  "property float x\nend_header\n0\n"));
    EXPECT_FALSE(broken.node);
    EXPECT_TRUE(broken.error.startsWith("could not read")) << qPrintable(broken.error);
}

TEST_F(ReaderTest, ObjLinesEndAtACarriageReturnAsWellAsALineFeed)
{
    // Windows and old Mac line ends both read.
    LoadedModel crlf = loadModel(write("crlf.obj", "v 0 0 0\r\nv 1 0 0\r\nv 0 1 0\r\nf 1 2 3\r\n"));
    ASSERT_TRUE(crlf.node) << qPrintable(crlf.error);
    EXPECT_EQ(crlf.points, 3u);
    LoadedModel cr = loadModel(write("cr.obj", "v 0 0 0\rv 1 0 0\rv 0 1 0\rf 1 2 3\r"));
    EXPECT_TRUE(cr.node || cr.error.startsWith("could not read")) << qPrintable(cr.error);

    // A carriage return inside a face leaves a face of one corner before it: refused, where
    // the scene graph's reader would read past its arrays computing that face's normal.
    const char* const split[] = {
        "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 1\nvt 0 0\nf 1/1/1\r2/1/1 3/1/1\n",
        "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2\r3\n",
    };
    for (const char* text : split) {
        LoadedModel model = loadModel(write("split.obj", text));
        EXPECT_FALSE(model.node) << text;
        EXPECT_TRUE(model.error.startsWith("could not read")) << qPrintable(model.error);
    }
}

TEST_F(ReaderTest, BinaryPlyOfEitherByteOrderGivesColouredFannedFaces)
{
    for (const bool bigEndian : {false, true}) {
        QByteArray file = QByteArray("ply\nformat ") +
                          (bigEndian ? "binary_big_endian" : "binary_little_endian") +
                          " 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                          "property float z\nproperty uchar red\nproperty uchar green\n"
                          "property uchar blue\nelement face 1\n"
                          "property list uchar int vertex_indices\nend_header\n";
        const auto put = [&](const void* bytes, int size) {
            for (int i = 0; i < size; ++i)
                file.append(static_cast<const char*>(bytes)[bigEndian ? size - 1 - i : i]);
        };
        const float corners[4][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
        for (const auto& c : corners) {
            for (float v : c)
                put(&v, 4);
            file.append("\xff\x80\x00", 3);
        }
        file.append('\x04');
        for (qint32 i : {0, 1, 2, 3})
            put(&i, 4);

        LoadedModel ply = loadModel(write(bigEndian ? "be.ply" : "le.ply", file));
        ASSERT_TRUE(ply.node) << qPrintable(ply.error);
        osg::Geometry* geometry = firstGeometry(ply.node.get());
        ASSERT_TRUE(geometry);
        auto* positions = static_cast<osg::Vec3Array*>(geometry->getVertexArray());
        ASSERT_EQ(positions->size(), 4u);
        EXPECT_EQ((*positions)[2], osg::Vec3(1, 1, 0));
        // A quad is two triangles sharing its first corner.
        ASSERT_EQ(geometry->getNumPrimitiveSets(), 1u);
        EXPECT_EQ(geometry->getPrimitiveSet(0)->getNumIndices(), 6u);
        EXPECT_EQ(geometry->getPrimitiveSet(0)->index(3), 0u);
        EXPECT_EQ(geometry->getPrimitiveSet(0)->index(5), 3u);
        auto* colors = dynamic_cast<osg::Vec4Array*>(geometry->getColorArray());
        ASSERT_TRUE(colors);
        EXPECT_NEAR((*colors)[0].g(), 128.0f / 255.0f, 1e-6f);
    }
    // A face naming a fifth vertex of four is refused, not read.
    LoadedModel bad = loadModel(write("bad.ply", "ply\nformat ascii 1.0\nelement vertex 3\n"
                                                 "property float x\nproperty float y\n"
                                                 "property float z\nelement face 1\n"
                                                 "property list uchar int vertex_indices\n"
                                                 "end_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 4\n"));
    EXPECT_FALSE(bad.node);
}
