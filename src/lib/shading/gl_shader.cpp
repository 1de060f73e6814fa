#include "gl_shader.h"

#include "gl_functions.h"
#include "orvane_log.h"

#include <QFile>
#include <QOpenGLContext>
#include <QOpenGLFunctions_4_1_Core>
#include <fstream>
#include <sstream>

namespace Vorna {
namespace Orvane {

namespace {
const char* const g_readFailed = "============== Shader: read shader file failed ==============";
} // namespace

GLShader::GLShader(ShaderInfo* list)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    m_context = context;
    // A context below 4.1 gives no table; every call then does nothing.
    m_glFunctions = currentGlFunctions();
    if (!m_glFunctions)
        qCCritical(orvane) << "GLShader needs a current OpenGL 4.1 context";
    if (list)
        m_program = loadShaders(list);
}

GLShader::~GLShader()
{
    // The function table belongs to the context: once that is gone, so is the program.
    if (m_context && QOpenGLContext::currentContext() == m_context)
        detach();
}

void GLShader::deleteShaders(ShaderInfo* list)
{
    for (ShaderInfo* row = list; row->type != 0; ++row) {
        if (row->shader != 0) {
            m_glFunctions->glDeleteShader(row->shader);
            row->shader = 0;
        }
    }
    // Ids in the map may name deleted shaders now.
    m_shaders.clear();
}

GLuint GLShader::loadShaders(ShaderInfo* list)
{
    if (!list || !m_glFunctions)
        return 0;

    m_program = m_glFunctions->glCreateProgram();
    for (ShaderInfo* row = list; row->type != 0; ++row) {
        row->shader = m_glFunctions->glCreateShader(row->type);
        if (!row->source) {
            deleteShaders(list);
            m_program = 0;
            return 0;
        }
        m_glFunctions->glShaderSource(row->shader, 1, &row->source, nullptr);
        m_glFunctions->glCompileShader(row->shader);
        if (!checkCompileErrors(row->shader, "SHADER")) {
            // Only this shader goes; the earlier ones and the program object stay.
            m_glFunctions->glDeleteShader(row->shader);
            row->shader = 0;
            m_program = 0;
            return 0;
        }
        m_glFunctions->glAttachShader(m_program, row->shader);
        m_shaders[row->type] = row->shader;
    }

    m_glFunctions->glLinkProgram(m_program);
    if (checkCompileErrors(m_program, "PROGRAM"))
        return m_program; // shaders stay attached so that detach can detach them

    deleteShaders(list);
    m_program = 0;
    return 0;
}

bool GLShader::checkCompileErrors(unsigned int id, std::string type)
{
    if (!m_glFunctions)
        return false;
    GLint success = 0;
    char infoLog[1024] = {};
    if (type == "PROGRAM") {
        m_glFunctions->glGetProgramiv(id, GL_LINK_STATUS, &success);
        if (success)
            return true;
        m_glFunctions->glGetProgramInfoLog(id, sizeof(infoLog), nullptr, infoLog);
        qCCritical(orvane) << "============== Shader linked failed ==============\n" << infoLog;
        qCCritical(orvane) << "============== Shader linked failed ==============";
        return false;
    }
    m_glFunctions->glGetShaderiv(id, GL_COMPILE_STATUS, &success);
    if (success)
        return true;
    m_glFunctions->glGetShaderInfoLog(id, sizeof(infoLog), nullptr, infoLog);
    qCCritical(orvane) << "============== Shader compilation failed ==============\n" << infoLog;
    qCCritical(orvane) << "============== Shader compilation failed ==============";
    return false;
}

void GLShader::use()
{
    if (m_glFunctions)
        m_glFunctions->glUseProgram(m_program);
}

void GLShader::cancel()
{
    if (m_glFunctions)
        m_glFunctions->glUseProgram(0);
}

void GLShader::detach()
{
    // Nothing linked (or already detached): no program to detach from.
    if (!m_glFunctions || m_program == 0)
        return;
    for (const auto& entry : m_shaders) {
        if (entry.second != 0)
            m_glFunctions->glDetachShader(m_program, entry.second);
    }
    m_glFunctions->glDeleteProgram(m_program);
    // Reset so that the destructor after an explicit detach touches no stale id.
    m_program = 0;
    m_shaders.clear();
}

GLint GLShader::location(const std::string& name)
{
    return m_glFunctions ? m_glFunctions->glGetUniformLocation(m_program, name.c_str()) : -1;
}

void GLShader::setBool(const std::string& name, bool value)
{
    if (m_glFunctions)
        m_glFunctions->glUniform1i(location(name), static_cast<GLint>(value));
}

void GLShader::setInt(const std::string& name, int value)
{
    if (m_glFunctions)
        m_glFunctions->glUniform1i(location(name), value);
}

void GLShader::setUint(const std::string& name, unsigned int value)
{
    if (m_glFunctions)
        m_glFunctions->glUniform1ui(location(name), value);
}

void GLShader::setFloat(const std::string& name, float value)
{
    if (m_glFunctions)
        m_glFunctions->glUniform1f(location(name), value);
}

void GLShader::setVec2(const std::string& name, float x, float y)
{
    if (m_glFunctions)
        m_glFunctions->glUniform2f(location(name), x, y);
}

void GLShader::setVec2(const std::string& name, const osg::Vec2f& value)
{
    if (m_glFunctions)
        m_glFunctions->glUniform2fv(location(name), 1, value.ptr());
}

void GLShader::setVec3(const std::string& name, float x, float y, float z)
{
    if (m_glFunctions)
        m_glFunctions->glUniform3f(location(name), x, y, z);
}

void GLShader::setVec3(const std::string& name, const osg::Vec3f& value)
{
    if (m_glFunctions)
        m_glFunctions->glUniform3fv(location(name), 1, value.ptr());
}

void GLShader::setVec4(const std::string& name, float x, float y, float z, float w)
{
    if (m_glFunctions)
        m_glFunctions->glUniform4f(location(name), x, y, z, w);
}

void GLShader::setVec4(const std::string& name, const osg::Vec4f& value)
{
    if (m_glFunctions)
        m_glFunctions->glUniform4fv(location(name), 1, value.ptr());
}

// OpenSceneGraph matrices are row-major in memory with row vectors, which is exactly the
// column-major layout GLSL expects for column vectors: no transpose.
void GLShader::setMat2(const std::string& name, const osg::Matrix2Template<float>& value)
{
    if (m_glFunctions)
        m_glFunctions->glUniformMatrix2fv(location(name), 1, GL_FALSE, value.ptr());
}

void GLShader::setMat3(const std::string& name, const osg::Matrix3Template<float>& value)
{
    if (m_glFunctions)
        m_glFunctions->glUniformMatrix3fv(location(name), 1, GL_FALSE, value.ptr());
}

void GLShader::setMat4(const std::string& name, const osg::Matrixf& value)
{
    if (m_glFunctions)
        m_glFunctions->glUniformMatrix4fv(location(name), 1, GL_FALSE, value.ptr());
}

namespace {

// GLSL wants its version line first: definitions follow it.
std::string withDefines(std::string source, const std::string& defines)
{
    if (defines.empty() || source.rfind("#version", 0) != 0)
        return defines + source;
    const size_t lineEnd = source.find('\n');
    if (lineEnd == std::string::npos)
        return source + "\n" + defines;
    return source.insert(lineEnd + 1, defines);
}

} // namespace

GLShader* GLShader::fromResources(const QString& vertexPath, const QString& fragmentPath,
                                  const std::string& defines)
{
    const std::string vertex = withDefines(readShaderCode(vertexPath), defines);
    const std::string fragment = withDefines(readShaderCode(fragmentPath), defines);
    ShaderInfo list[] = {{GL_VERTEX_SHADER, vertex.c_str(), 0},
                         {GL_FRAGMENT_SHADER, fragment.c_str(), 0},
                         {0, nullptr, 0}};
    return new GLShader(list);
}

std::string GLShader::readShaderCode(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCCritical(orvane) << g_readFailed;
        return std::string();
    }
    return file.readAll().toStdString();
}

std::string GLShader::readShaderCodeFullPath(const std::string& path)
{
    std::ifstream file;
    file.exceptions(std::ifstream::failbit | std::ifstream::badbit);
    try {
        file.open(path);
        std::stringstream stream;
        stream << file.rdbuf();
        file.close();
        return stream.str();
    } catch (const std::ios_base::failure&) {
        qCCritical(orvane) << g_readFailed;
        return std::string();
    }
}

} // namespace Orvane
} // namespace Vorna
