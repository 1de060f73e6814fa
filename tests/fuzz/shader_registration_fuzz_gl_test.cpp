// Programs registered with garbage names and sources: a name taken twice is refused with its
// line, and a garbage program drawn on a canvas fails to compile without taking the canvas down.
#include "canvas3d_view.h"
#include "fuzz_runs.h"
#include "gl_test_support.h"
#include "orvane_singleton.h"
#include "render_info.h"

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>

#include <set>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::LogCapture;

namespace {

void quiet(QtMsgType, const QMessageLogContext&, const QString&) {}

QByteArray garbage(std::mt19937_64& random)
{
    static const char* const kPieces[] = {"#version 410 core\n",
                                          "void main() {",
                                          "}",
                                          "gl_Position = vec4(0);",
                                          "uniform float u;",
                                          "#error\n",
                                          "#define A A A\n",
                                          "layout(location = 99999) in vec4 p;",
                                          "\0",
                                          "/*",
                                          "\"",
                                          "#extension GL_NOPE : require\n",
                                          "out vec4 c; void main(){ c = vec4(1); }"};
    QByteArray text;
    const int pieces = static_cast<int>(random() % 12);
    for (int i = 0; i < pieces; ++i) {
        if (random() % 3 == 0) {
            const int bytes = static_cast<int>(random() % 32);
            for (int b = 0; b < bytes; ++b)
                text.append(static_cast<char>(random() % 256));
        } else {
            text.append(kPieces[random() % (sizeof(kPieces) / sizeof(kPieces[0]))]);
        }
    }
    return text;
}

std::map<osg::Shader::Type, QByteArray> garbageSources(std::mt19937_64& random)
{
    std::map<osg::Shader::Type, QByteArray> sources;
    const int count = static_cast<int>(random() % 4);
    for (int i = 0; i < count; ++i) {
        const osg::Shader::Type types[] = {osg::Shader::VERTEX,      osg::Shader::FRAGMENT,
                                           osg::Shader::GEOMETRY,    osg::Shader::COMPUTE,
                                           osg::Shader::TESSCONTROL, osg::Shader::UNDEFINED};
        sources[types[random() % 6]] = garbage(random);
    }
    return sources;
}

// A name from a small pool, so that most are taken already; bytes of any value.
std::string garbageName(std::mt19937_64& random)
{
    const int id = static_cast<int>(random() % 2048);
    std::string name = "fuzz_program_" + std::to_string(id);
    if (id % 7 == 0)
        name.push_back('\0');
    if (id % 11 == 0)
        name += "\xff\xfe/../";
    return id == 0 ? std::string() : name;
}

} // namespace

TEST(ShaderRegistrationFuzz, TakenNamesAreRefusedAndGarbageProgramsDrawNothing)
{
    const QtMessageHandler previous = qInstallMessageHandler(quiet);
    auto random = OrvaneFuzz::generator();
    std::set<std::string> taken;
    std::vector<std::string> registered;
    {
        OrvaneFuzz::Figure figure("shader_registration");
        const std::uint64_t total = OrvaneFuzz::runs(20000);
        for (; figure.inputs < total; figure.inputs += 1024) {
            LogCapture log;
            int refused = 0;
            for (int k = 0; k < 1024; ++k) {
                const std::string name = garbageName(random);
                const bool added =
                    OrvaneSingleton::instance()->addShader(name, garbageSources(random));
                const bool fresh = taken.insert(name).second;
                ASSERT_EQ(added, fresh) << name;
                if (added)
                    registered.push_back(name);
                refused += added ? 0 : 1;
            }
            ASSERT_EQ(log.count("Already existing shader with the same shader name"), refused);
        }
    }
    qInstallMessageHandler(previous);

    // A few of them drawn: compile and link fail in the scene graph, the canvas carries on.
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    w.item()->setClearColor(Qt::blue);
    const int drawn = std::min<int>(static_cast<int>(registered.size()), 48);
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        for (int i = 0; i < drawn; ++i) {
            osg::ref_ptr<osg::Geometry> triangle = new osg::Geometry;
            osg::ref_ptr<osg::Vec3Array> corners = new osg::Vec3Array;
            corners->push_back(osg::Vec3(0, 0, 0));
            corners->push_back(osg::Vec3(1, 0, 0));
            corners->push_back(osg::Vec3(0, 0, 1));
            triangle->setVertexAttribArray(0, corners.get(), osg::Array::BIND_PER_VERTEX);
            triangle->setVertexArray(corners.get());
            triangle->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, 3));
            triangle->setUseVertexArrayObject(true);
            triangle->getOrCreateStateSet()->setAttributeAndModes(
                OrvaneSingleton::instance()->getShaderMgr()->getShader(registered[i]));
            auto* geode = new osg::Geode;
            geode->addDrawable(triangle.get());
            ViewMgr::getModel(info.mainView())->addChild(geode);
        }
    }));
    ASSERT_TRUE(w.run(nullptr));
    ASSERT_TRUE(w.run(nullptr));
    // The clear colour still shows: the frame completed.
    const QImage image = w.grab();
    EXPECT_TRUE(OrvaneTest::near(image.pixelColor(2, 2), Qt::blue, 8)); // 8: rounding of the blend
}
