#include "canvas3d_shadermanager.h"
#include "gl_shader.h"

#include <QFile>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions_4_1_Core>
#include <QTemporaryFile>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

using namespace Vorna::Orvane;

// Readable failure output for QString comparisons.
inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

struct LogLine {
    QtMsgType type;
    QString category;
    QString text;
};

std::mutex g_logMutex;
std::vector<LogLine> g_log;
QtMessageHandler g_previousHandler = nullptr;

void captureMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    {
        std::lock_guard<std::mutex> lock(g_logMutex);
        g_log.push_back({type, QString::fromUtf8(context.category), text});
    }
    // Debug lines are what the tests read; only louder ones go to the console.
    if (type != QtDebugMsg && g_previousHandler)
        g_previousHandler(type, context, text);
}

void clearLog()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    g_log.clear();
}

// Lines of the library's category at the given level that start with prefix.
std::vector<QString> logLines(QtMsgType type, const QString& prefix)
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    std::vector<QString> lines;
    for (const LogLine& line : g_log) {
        if (line.type == type && line.category == QLatin1String("Vorna.Orvane") &&
            line.text.startsWith(prefix))
            lines.push_back(line.text);
    }
    return lines;
}

size_t logCount(QtMsgType type, const QString& prefix)
{
    return logLines(type, prefix).size();
}

QByteArray resourceText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Makes the protected file-list linker reachable with test-only resources.
class TestShaderManager : public ShaderManager
{
public:
    osg::ref_ptr<osg::Program> link(QStringList files) { return linkShader(files); }
};

const char* const g_compileFailed = "============== Shader compilation failed ==============";
const char* const g_linkFailed = "============== Shader linked failed ==============";

class ShaderManagerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_manager.init();
        clearLog();
    }

    TestShaderManager m_manager;
};

TEST_F(ShaderManagerTest, InitFillsTheTableAndLinksNothing)
{
    ShaderManager manager;
    manager.init();
    EXPECT_EQ(manager.fileTable().size(), 64u);
    EXPECT_EQ(logCount(QtDebugMsg, "linkShader:"), 0u);
    EXPECT_EQ(logCount(QtDebugMsg, "Cannot open"), 0u);
    EXPECT_FALSE(manager.hasShader(g_meshProgramStr));
}

TEST_F(ShaderManagerTest, TableKeepsListOrderOfIrregularRows)
{
    const auto table = m_manager.fileTable();
    ASSERT_EQ(table.count("texturemesh"), 1u);
    EXPECT_EQ(table.at("texturemesh"),
              QStringList({":/mesh/texturemesh.vert", ":/mesh/texturemesh.frag",
                           ":/mesh/texturemesh.geom"}));
    ASSERT_EQ(table.count("sphere_editmeshcolor"), 1u);
    EXPECT_EQ(table.at("sphere_editmeshcolor"),
              QStringList({":/mesh/sphere_edit_basemesh_color.vert",
                           ":/mesh/edit_basemesh_color.geom", ":/mesh/edit_basemesh_color.frag"}));
    ASSERT_EQ(table.count("metal_compute"), 1u);
    EXPECT_EQ(table.at("metal_compute"), QStringList({":/metal_shader/metal_compute.metal"}));
    for (const char* unlisted :
         {"incpoint", "meshcolor_flat", "trans_meshcolor", "edit_trans_meshcolor"})
        EXPECT_EQ(table.count(unlisted), 0u) << unlisted;
}

TEST_F(ShaderManagerTest, HasShaderTurnsTrueOnlyAfterFirstGetShader)
{
    EXPECT_FALSE(m_manager.hasShader("mesh"));
    ASSERT_NE(m_manager.getShader("mesh"), nullptr);
    EXPECT_TRUE(m_manager.hasShader("mesh"));
    EXPECT_FALSE(m_manager.hasShader("meshcolor"));
}

TEST_F(ShaderManagerTest, SecondGetShaderReturnsTheSameNamedProgram)
{
    osg::Program* first = m_manager.getShader("pointcolor");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getName(), "pointcolor");
    const size_t linkLines = logCount(QtDebugMsg, "linkShader:");
    EXPECT_EQ(m_manager.getShader("pointcolor"), first);
    // The second call must not read the files again.
    EXPECT_EQ(logCount(QtDebugMsg, "linkShader:"), linkLines);
}

TEST_F(ShaderManagerTest, UnknownNameLogsAndGivesNull)
{
    EXPECT_EQ(m_manager.getShader("no_such_program"), nullptr);
    const auto lines = logLines(QtDebugMsg, "getShader");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines.front(), "getShader this shaderType undefine!");
    EXPECT_FALSE(m_manager.hasShader("no_such_program"));
}

TEST_F(ShaderManagerTest, NamesWithoutRowsAreUndefinedUntilRegistered)
{
    for (const std::string& name : {g_incpointProgramStr, g_meshColorFlatProgramStr,
                                    g_transMeshColorProgramStr, g_editTransMeshColorProgramStr})
        EXPECT_EQ(m_manager.getShader(name), nullptr) << name;
    EXPECT_EQ(logCount(QtDebugMsg, "getShader this shaderType undefine!"), 4u);

    ASSERT_TRUE(
        m_manager.registShader(g_incpointProgramStr, {{osg::Shader::VERTEX, "void main(){}"}}));
    EXPECT_NE(m_manager.getShader(g_incpointProgramStr), nullptr);
}

TEST_F(ShaderManagerTest, RegisteredProgramWinsOverTheFiles)
{
    const QByteArray vertex = "#version 330 core\nvoid main() { gl_Position = vec4(0.0); }\n";
    ASSERT_TRUE(m_manager.registShader("mesh", {{osg::Shader::VERTEX, vertex}}));
    EXPECT_TRUE(m_manager.hasShader("mesh"));

    osg::Program* program = m_manager.getShader("mesh");
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->getName(), "mesh");
    ASSERT_EQ(program->getNumShaders(), 1u);
    EXPECT_EQ(program->getShader(0)->getType(), osg::Shader::VERTEX);
    EXPECT_EQ(program->getShader(0)->getShaderSource(), vertex.toStdString());
    EXPECT_EQ(logCount(QtDebugMsg, "linkShader:"), 0u);
    EXPECT_EQ(logCount(QtDebugMsg, "Cannot open"), 0u);
}

TEST_F(ShaderManagerTest, RegistShaderRefusesATakenName)
{
    osg::Program* linked = m_manager.getShader("mesh");
    ASSERT_NE(linked, nullptr);
    const unsigned int stages = linked->getNumShaders();

    EXPECT_FALSE(m_manager.registShader("mesh", {{osg::Shader::VERTEX, "void main(){}"}}));
    const auto lines = logLines(QtCriticalMsg, "Already");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines.front(), "Already existing shader with the same shader name");
    EXPECT_EQ(m_manager.getShader("mesh"), linked);
    EXPECT_EQ(linked->getNumShaders(), stages);

    // A run-time name can be registered once only, too.
    EXPECT_TRUE(m_manager.registShader("custom", {}));
    EXPECT_FALSE(m_manager.registShader("custom", {}));
    EXPECT_EQ(logCount(QtCriticalMsg, "Already existing shader with the same shader name"), 2u);
}

TEST_F(ShaderManagerTest, RegistShaderAddsStagesInMapOrder)
{
    ASSERT_TRUE(m_manager.registShader("two_stages", {{osg::Shader::VERTEX, "vertex text"},
                                                      {osg::Shader::FRAGMENT, "fragment text"}}));
    osg::Program* program = m_manager.getShader("two_stages");
    ASSERT_NE(program, nullptr);
    ASSERT_EQ(program->getNumShaders(), 2u);
    // The map orders by the OpenGL enum: GL_FRAGMENT_SHADER (0x8B30) before GL_VERTEX_SHADER.
    EXPECT_EQ(program->getShader(0)->getType(), osg::Shader::FRAGMENT);
    EXPECT_EQ(program->getShader(0)->getShaderSource(), "fragment text");
    EXPECT_EQ(program->getShader(1)->getType(), osg::Shader::VERTEX);
    EXPECT_EQ(program->getShader(1)->getShaderSource(), "vertex text");
}

TEST_F(ShaderManagerTest, ShaderTypeComesFromFirstLetterOfSuffix)
{
    const QStringList files = {
        ":/gltest/stage.comp",    ":/gltest/ok.frag",     ":/gltest/ok.geom",
        ":/gltest/ok.vert",       ":/gltest/missing.vsh", ":/gltest/missing.glsl",
        ":/gltest/missing.metal", ":/gltest/missing.txt", ":/gltest/noext"};
    osg::ref_ptr<osg::Program> program = m_manager.link(files);
    ASSERT_TRUE(program.valid());

    const std::vector<osg::Shader::Type> expected = {osg::Shader::COMPUTE,  osg::Shader::FRAGMENT,
                                                     osg::Shader::GEOMETRY, osg::Shader::VERTEX,
                                                     osg::Shader::VERTEX,   osg::Shader::GEOMETRY};
    ASSERT_EQ(program->getNumShaders(), expected.size());
    for (unsigned int i = 0; i < expected.size(); ++i)
        EXPECT_EQ(program->getShader(i)->getType(), expected[i]) << files[i].toStdString();

    // Existing files give their text, missing ones an empty stage and a log line.
    for (unsigned int i = 0; i < 4; ++i)
        EXPECT_EQ(program->getShader(i)->getShaderSource(), resourceText(files[i]).toStdString());
    EXPECT_TRUE(program->getShader(4)->getShaderSource().empty());
    EXPECT_EQ(logCount(QtDebugMsg, "Cannot open"), 5u);
    EXPECT_EQ(logCount(QtDebugMsg, "linkShader:"), static_cast<size_t>(files.size()));
}

TEST_F(ShaderManagerTest, MissingResourcesStillGiveAProgram)
{
    osg::Program* program = m_manager.getShader("meshcolor_material");
    ASSERT_NE(program, nullptr);
    const auto lines = logLines(QtDebugMsg, "Cannot open");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(lines[0].contains(":/mesh/basemesh_color_material.vert"));
    EXPECT_TRUE(lines[1].contains(":/mesh/basemesh_color_material.geom"));
    EXPECT_TRUE(lines[2].contains(":/mesh/basemesh_color_material.frag"));
    ASSERT_EQ(program->getNumShaders(), 3u);
    EXPECT_EQ(program->getShader(0)->getType(), osg::Shader::VERTEX);
    EXPECT_EQ(program->getShader(1)->getType(), osg::Shader::GEOMETRY);
    EXPECT_EQ(program->getShader(2)->getType(), osg::Shader::FRAGMENT);
    for (unsigned int i = 0; i < 3; ++i)
        EXPECT_TRUE(program->getShader(i)->getShaderSource().empty());
}

TEST_F(ShaderManagerTest, MetalNameGivesAProgramWithoutShaders)
{
    osg::Program* program = m_manager.getShader(g_metalComputeStr);
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->getNumShaders(), 0u);
    EXPECT_EQ(program->getName(), g_metalComputeStr);
    EXPECT_TRUE(m_manager.hasShader(g_metalComputeStr));
}

TEST_F(ShaderManagerTest, MetalTextOutlivesTheCall)
{
    EXPECT_EQ(m_manager.getCharDataByMetalShader("no_such_kernel"), nullptr);
    EXPECT_EQ(logCount(QtDebugMsg, "getCharDataByMetalShader this shaderType undefine!"), 1u);

    for (const std::string& name : {g_metalComputeStr, g_increPointMetalComputeStr}) {
        char* text = m_manager.getCharDataByMetalShader(name);
        ASSERT_NE(text, nullptr) << name;
        const QString last = m_manager.fileTable().at(name).last();
        const QByteArray expected = resourceText(last);
        EXPECT_EQ(QByteArray(text), expected) << name;
        // Another call must not pull the earlier text from under its user.
        EXPECT_EQ(m_manager.getCharDataByMetalShader(name), text);
        EXPECT_EQ(QByteArray(text), expected) << name;
    }
}

TEST_F(ShaderManagerTest, ReadShaderFileReportsMissingFiles)
{
    QByteArray out = "untouched";
    EXPECT_FALSE(readShaderFile(":/gltest/absent.vert", out));
    EXPECT_EQ(out, QByteArray("untouched"));
    const auto lines = logLines(QtDebugMsg, "Cannot open");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines.front().contains(":/gltest/absent.vert"));

    EXPECT_TRUE(readShaderFile(":/gltest/ok.vert", out));
    EXPECT_TRUE(out.startsWith("#version 330 core"));
}

TEST_F(ShaderManagerTest, ConcurrentCallersShareOneProgram)
{
    std::vector<osg::Program*> results(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < results.size(); ++i)
        threads.emplace_back([this, &results, i] { results[i] = m_manager.getShader("marker"); });
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_NE(results.front(), nullptr);
    for (osg::Program* program : results)
        EXPECT_EQ(program, results.front());
    // Linked once: one "linkShader:" line per file of the row.
    EXPECT_EQ(logCount(QtDebugMsg, "linkShader:"), 3u);
}

// Makes an offscreen OpenGL context current for the raw GL tests.
class GLTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_surface.reset(new QOffscreenSurface);
        m_surface->create();
        if (!m_surface->isValid())
            GTEST_SKIP() << "no offscreen surface: no OpenGL on this display";
        m_context.reset(new QOpenGLContext);
        if (!m_context->create())
            GTEST_SKIP() << "can't create an OpenGL context";
        if (!m_context->makeCurrent(m_surface.get()))
            GTEST_SKIP() << "can't make the OpenGL context current";
        const QSurfaceFormat format = m_context->format();
        if (format.version() < qMakePair(4, 1))
            GTEST_SKIP() << "OpenGL " << format.majorVersion() << "." << format.minorVersion()
                         << " is below the 4.1 the library needs";
        m_gl = m_context->versionFunctions<QOpenGLFunctions_4_1_Core>();
        if (!m_gl || !m_gl->initializeOpenGLFunctions())
            GTEST_SKIP() << "no OpenGL 4.1 function table";
        clearLog();
    }

    void TearDown() override
    {
        if (m_context)
            m_context->doneCurrent();
    }

    bool hasGL43() const { return m_context->format().version() >= qMakePair(4, 3); }

    // Compiles and links the stages of an osg::Program on the current context.
    GLuint linkOnGL(const osg::Program* program, GLShader& shader)
    {
        std::vector<std::string> sources;
        for (unsigned int i = 0; i < program->getNumShaders(); ++i)
            sources.push_back(program->getShader(i)->getShaderSource());
        std::vector<GLShader::ShaderInfo> rows;
        for (unsigned int i = 0; i < program->getNumShaders(); ++i)
            rows.push_back(
                {static_cast<GLenum>(program->getShader(i)->getType()), sources[i].c_str(), 0});
        rows.push_back({0, nullptr, 0});
        return shader.loadShaders(rows.data());
    }

    GLint linkStatus(GLuint program)
    {
        GLint status = 0;
        m_gl->glGetProgramiv(program, GL_LINK_STATUS, &status);
        return status;
    }

    std::unique_ptr<QOffscreenSurface> m_surface;
    std::unique_ptr<QOpenGLContext> m_context;
    QOpenGLFunctions_4_1_Core* m_gl = nullptr;
};

TEST_F(GLTest, EveryTableRowWithItsResourcesLinks)
{
    ShaderManager manager;
    manager.init();
    const auto table = manager.fileTable();
    ASSERT_FALSE(table.empty());

    // The one row whose files do not exist, by design: it names a material variant never drawn.
    const std::set<std::string> meshRowsWrittenElsewhere = {"meshcolor_material"};

    std::vector<std::string> missing;
    std::vector<std::string> notGlsl;
    int linked = 0;
    for (const auto& row : table) {
        QStringList absent;
        for (const QString& path : row.second) {
            if (!QFile::exists(path))
                absent << path;
        }
        if (!absent.isEmpty()) {
            const bool meshRow = row.second.first().startsWith(":/mesh/");
            EXPECT_TRUE(!meshRow || meshRowsWrittenElsewhere.count(row.first))
                << "mesh program " << row.first << " lacks " << absent.join(", ").toStdString();
            EXPECT_FALSE(row.second.first().startsWith(":/point/"))
                << "point program " << row.first << " lacks " << absent.join(", ").toStdString();
            missing.push_back(row.first + " (" + absent.join(", ").toStdString() + ")");
            continue;
        }
        osg::Program* program = manager.getShader(row.first);
        ASSERT_NE(program, nullptr) << row.first;
        if (program->getNumShaders() == 0) {
            notGlsl.push_back(row.first);
            continue;
        }
        clearLog();
        GLShader shader;
        const GLuint id = linkOnGL(program, shader);
        EXPECT_NE(id, 0u)
            << row.first << " doesn't build; first error: "
            << (logLines(QtCriticalMsg, "==============").empty()
                    ? std::string("none logged")
                    : logLines(QtCriticalMsg, "==============").front().toStdString());
        if (id != 0)
            ++linked;
    }

    EXPECT_EQ(table.size(), 64u);
    EXPECT_EQ(missing.size(), 1u) << "only meshcolor_material may lack its files";
    std::cout << "[ catalogue ] " << table.size() << " rows, " << linked << " linked, "
              << notGlsl.size() << " not GLSL, " << missing.size()
              << " with missing resources:" << std::endl;
    for (const std::string& row : missing)
        std::cout << "[ catalogue ]   missing: " << row << std::endl;
    for (const std::string& row : notGlsl)
        std::cout << "[ catalogue ]   not GLSL: " << row << std::endl;
    RecordProperty("rows", static_cast<int>(table.size()));
    RecordProperty("rows_linked", linked);
    RecordProperty("rows_not_glsl", static_cast<int>(notGlsl.size()));
    RecordProperty("rows_missing_resources", static_cast<int>(missing.size()));
}

TEST_F(GLTest, ResourcesNoRowNamesBuildWhereTheirStageAllows)
{
    TestShaderManager manager;
    // Whole programs: geometry stages the rows leave out, with the vertex and fragment shaders
    // of the same name; the raw point programs of platforms without Metal; the older
    // transparency passes.
    const std::vector<QStringList> programs = {
        {":/mesh/basemesh.vert", ":/mesh/basemesh.geom", ":/mesh/basemesh.frag"},
        {":/mesh/basemesh_color.vert", ":/mesh/basemesh_color.geom", ":/mesh/basemesh_color.frag"},
        {":/mesh/basemesh_heatmap.vert", ":/mesh/basemesh_heatmap.geom",
         ":/mesh/basemesh_heatmap.frag"},
        {":/mesh/cut_basemesh.vert", ":/mesh/cut_basemesh.geom", ":/mesh/cut_basemesh.frag"},
        {":/mesh/cut_basemesh_color.vert", ":/mesh/cut_basemesh_color.geom",
         ":/mesh/cut_basemesh_color.frag"},
        {":/mesh/cut_texturemesh.vert", ":/mesh/cut_texturemesh.geom",
         ":/mesh/cut_texturemesh.frag"},
        {":/point/point_cloud_draw_whole.vert", ":/point/point_cloud_draw_whole.frag"},
        {":/point/point_cloud_draw_current.vert", ":/point/point_cloud_draw_current.frag"},
        {":/mesh/oit_pass0_basemesh_color.vert", ":/mesh/oit_pass0_basemesh_color.geom",
         ":/mesh/oit_pass0_basemesh_color.frag"},
        {":/mesh/edit_oit_pass0_basemesh_color.vert", ":/mesh/edit_oit_pass0_basemesh_color.geom",
         ":/mesh/edit_oit_pass0_basemesh_color.frag"},
        {":/mesh/oit_pass1.vert", ":/mesh/oit_pass1.frag"},
        // The older first-pass fragment shaders, behind stages that hand them the same block.
        {":/mesh/basemesh.vert", ":/mesh/basemesh.geom", ":/mesh/oit_pass0_basemesh.frag"},
        {":/mesh/texturemesh.vert", ":/mesh/oit_pass0_texturemesh.frag"},
    };
    for (const QStringList& files : programs) {
        for (const QString& file : files)
            ASSERT_TRUE(QFile::exists(file)) << file.toStdString();
        clearLog();
        osg::ref_ptr<osg::Program> program = manager.link(files);
        ASSERT_EQ(program->getNumShaders(), static_cast<unsigned int>(files.size()));
        GLShader shader;
        EXPECT_NE(linkOnGL(program.get(), shader), 0u)
            << files.join(", ").toStdString() << ": "
            << (logLines(QtCriticalMsg, "==============").empty()
                    ? std::string("none logged")
                    : logLines(QtCriticalMsg, "==============").front().toStdString());
    }

    // Compute stages need OpenGL 4.3.
    for (const QString& file :
         {":/point/point_cloud_patch.comp", ":/point/point_cloud_copy_buf.comp"}) {
        ASSERT_TRUE(QFile::exists(file)) << file.toStdString();
        if (!hasGL43())
            continue;
        clearLog();
        osg::ref_ptr<osg::Program> program = manager.link({file});
        GLShader shader;
        EXPECT_NE(linkOnGL(program.get(), shader), 0u) << file.toStdString();
    }
}

TEST_F(GLTest, FileListFromResourcesLinks)
{
    TestShaderManager manager;
    // Geometry after fragment on purpose: the suffix, not the position, decides the stage.
    osg::ref_ptr<osg::Program> program =
        manager.link({":/gltest/ok.vert", ":/gltest/ok.frag", ":/gltest/ok.geom"});
    GLShader shader;
    const GLuint id = linkOnGL(program.get(), shader);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(shader.getProgram(), id);
    EXPECT_NE(linkStatus(id), 0);

    if (!hasGL43())
        return;
    osg::ref_ptr<osg::Program> compute = manager.link({":/gltest/stage.comp"});
    GLShader computeShader;
    EXPECT_NE(linkOnGL(compute.get(), computeShader), 0u);
}

TEST_F(GLTest, LinkedProgramTakesUniforms)
{
    const std::string vertex = GLShader::readShaderCode(":/gltest/ok.vert");
    const std::string fragment = GLShader::readShaderCode(":/gltest/ok.frag");
    ASSERT_FALSE(vertex.empty());
    ASSERT_FALSE(fragment.empty());
    GLShader::ShaderInfo rows[] = {{GL_VERTEX_SHADER, vertex.c_str(), 0},
                                   {GL_FRAGMENT_SHADER, fragment.c_str(), 0},
                                   {0, nullptr, 0}};
    GLShader shader(rows);
    const GLuint id = shader.getProgram();
    ASSERT_NE(id, 0u);
    EXPECT_NE(rows[0].shader, 0u);
    EXPECT_NE(rows[1].shader, 0u);
    EXPECT_EQ(logCount(QtCriticalMsg, "=============="), 0u);

    shader.use();
    GLint current = 0;
    m_gl->glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(static_cast<GLuint>(current), id);

    auto floats = [&](const char* name, int count) {
        std::vector<GLfloat> values(count, -1.0f);
        m_gl->glGetUniformfv(id, m_gl->glGetUniformLocation(id, name), values.data());
        return values;
    };
    shader.setFloat("u_scale", 2.5f);
    EXPECT_EQ(floats("u_scale", 1), std::vector<GLfloat>({2.5f}));
    shader.setVec3("u_offset", 1.0f, 2.0f, 3.0f);
    EXPECT_EQ(floats("u_offset", 3), std::vector<GLfloat>({1.0f, 2.0f, 3.0f}));
    shader.setVec3("u_offset", osg::Vec3f(4.0f, 5.0f, 6.0f));
    EXPECT_EQ(floats("u_offset", 3), std::vector<GLfloat>({4.0f, 5.0f, 6.0f}));
    shader.setVec4("u_color", osg::Vec4f(0.1f, 0.2f, 0.3f, 0.4f));
    EXPECT_EQ(floats("u_color", 4), std::vector<GLfloat>({0.1f, 0.2f, 0.3f, 0.4f}));
    shader.setVec2("u_uv", 7.0f, 8.0f);
    EXPECT_EQ(floats("u_uv", 2), std::vector<GLfloat>({7.0f, 8.0f}));

    // A translation must land in the last column that GLSL sees.
    osg::Matrixf translate = osg::Matrixf::translate(10.0f, 20.0f, 30.0f);
    shader.setMat4("u_mvp", translate);
    const std::vector<GLfloat> mvp = floats("u_mvp", 16);
    EXPECT_EQ(mvp[12], 10.0f);
    EXPECT_EQ(mvp[13], 20.0f);
    EXPECT_EQ(mvp[14], 30.0f);

    osg::Matrix2Template<float> m2(1.0f, 2.0f, 3.0f, 4.0f);
    shader.setMat2("u_m2", m2);
    EXPECT_EQ(floats("u_m2", 4), std::vector<GLfloat>({1.0f, 2.0f, 3.0f, 4.0f}));
    osg::Matrix3Template<float> m3(1, 2, 3, 4, 5, 6, 7, 8, 9);
    shader.setMat3("u_m3", m3);
    EXPECT_EQ(floats("u_m3", 9), std::vector<GLfloat>({1, 2, 3, 4, 5, 6, 7, 8, 9}));

    GLint mode = 0;
    shader.setInt("u_mode", -3);
    m_gl->glGetUniformiv(id, m_gl->glGetUniformLocation(id, "u_mode"), &mode);
    EXPECT_EQ(mode, -3);
    GLint enabled = 0;
    shader.setBool("u_enabled", true);
    m_gl->glGetUniformiv(id, m_gl->glGetUniformLocation(id, "u_enabled"), &enabled);
    EXPECT_EQ(enabled, 1);
    GLuint flags = 0;
    shader.setUint("u_flags", 0x80000001u);
    m_gl->glGetUniformuiv(id, m_gl->glGetUniformLocation(id, "u_flags"), &flags);
    EXPECT_EQ(flags, 0x80000001u);

    shader.cancel();
    m_gl->glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(current, 0);
    EXPECT_EQ(m_gl->glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

TEST_F(GLTest, CompileErrorIsLoggedAndGivesZero)
{
    const std::string vertex = GLShader::readShaderCode(":/gltest/ok.vert");
    const std::string broken = GLShader::readShaderCode(":/gltest/broken.frag");
    GLShader::ShaderInfo rows[] = {{GL_VERTEX_SHADER, vertex.c_str(), 0},
                                   {GL_FRAGMENT_SHADER, broken.c_str(), 0},
                                   {0, nullptr, 0}};
    GLShader shader;
    EXPECT_EQ(shader.loadShaders(rows), 0u);
    EXPECT_EQ(rows[1].shader, 0u);
    // Only the failing shader goes; the one compiled before it stays.
    EXPECT_NE(rows[0].shader, 0u);
    EXPECT_TRUE(m_gl->glIsShader(rows[0].shader));

    const auto lines = logLines(QtCriticalMsg, g_compileFailed);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].startsWith(QString(g_compileFailed) + "\n"));
    // The driver's log rides on the first line.
    EXPECT_GT(lines[0].trimmed().size(), QString(g_compileFailed).size());
    EXPECT_EQ(lines[1], g_compileFailed);
    EXPECT_EQ(logCount(QtCriticalMsg, g_linkFailed), 0u);
    m_gl->glDeleteShader(rows[0].shader);
}

TEST_F(GLTest, LinkErrorIsLoggedAndDeletesTheShaders)
{
    const std::string vertex = GLShader::readShaderCode(":/gltest/nomain.vert");
    const std::string fragment = GLShader::readShaderCode(":/gltest/ok.frag");
    GLShader::ShaderInfo rows[] = {{GL_VERTEX_SHADER, vertex.c_str(), 0},
                                   {GL_FRAGMENT_SHADER, fragment.c_str(), 0},
                                   {0, nullptr, 0}};
    GLShader shader(rows);
    EXPECT_EQ(shader.getProgram(), 0u);
    EXPECT_EQ(rows[0].shader, 0u);
    EXPECT_EQ(rows[1].shader, 0u);
    EXPECT_EQ(logCount(QtCriticalMsg, g_compileFailed), 0u);
    const auto lines = logLines(QtCriticalMsg, g_linkFailed);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].startsWith(QString(g_linkFailed) + "\n"));
    EXPECT_EQ(lines[1], g_linkFailed);
}

TEST_F(GLTest, NullSourceStopsSilently)
{
    const std::string vertex = GLShader::readShaderCode(":/gltest/ok.vert");
    GLShader::ShaderInfo rows[] = {
        {GL_VERTEX_SHADER, vertex.c_str(), 0}, {GL_FRAGMENT_SHADER, nullptr, 0}, {0, nullptr, 0}};
    GLShader shader;
    EXPECT_EQ(shader.loadShaders(rows), 0u);
    EXPECT_EQ(rows[0].shader, 0u);
    EXPECT_EQ(rows[1].shader, 0u);
    EXPECT_EQ(logCount(QtCriticalMsg, "=============="), 0u);
    EXPECT_EQ(shader.loadShaders(nullptr), 0u);
}

TEST_F(GLTest, DestructionDeletesTheProgram)
{
    const std::string vertex = GLShader::readShaderCode(":/gltest/ok.vert");
    const std::string fragment = GLShader::readShaderCode(":/gltest/ok.frag");
    GLShader::ShaderInfo rows[] = {{GL_VERTEX_SHADER, vertex.c_str(), 0},
                                   {GL_FRAGMENT_SHADER, fragment.c_str(), 0},
                                   {0, nullptr, 0}};
    GLuint id = 0;
    {
        GLShader shader(rows);
        id = shader.getProgram();
        ASSERT_NE(id, 0u);
        GLint attached = 0;
        m_gl->glGetProgramiv(id, GL_ATTACHED_SHADERS, &attached);
        EXPECT_EQ(attached, 2);
        shader.detach();
        EXPECT_FALSE(m_gl->glIsProgram(id));
    } // the destructor detaches again and must not touch the deleted program
    EXPECT_EQ(m_gl->glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    m_gl->glDeleteShader(rows[0].shader);
    m_gl->glDeleteShader(rows[1].shader);
}

TEST(GLShaderFileTest, ReadingShaderCodeReportsFailure)
{
    clearLog();
    const char* failed = "============== Shader: read shader file failed ==============";
    EXPECT_EQ(GLShader::readShaderCode(":/gltest/absent.frag"), "");
    EXPECT_EQ(logCount(QtCriticalMsg, failed), 1u);
    EXPECT_EQ(GLShader::readShaderCodeFullPath("/nonexistent/dir/absent.frag"), "");
    EXPECT_EQ(logCount(QtCriticalMsg, failed), 2u);

    QTemporaryFile file;
    ASSERT_TRUE(file.open());
    file.write("void main() {}\n");
    file.close();
    EXPECT_EQ(GLShader::readShaderCodeFullPath(file.fileName().toStdString()), "void main() {}\n");
    EXPECT_EQ(logCount(QtCriticalMsg, failed), 2u);
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    // The tests read the library's debug lines, whatever rules the environment sets.
    QLoggingCategory::setFilterRules("Vorna.Orvane.debug=true");
    g_previousHandler = qInstallMessageHandler(captureMessage);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
