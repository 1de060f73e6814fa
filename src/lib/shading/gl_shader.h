#pragma once

#include <QOpenGLContext>
#include <QPointer>
#include <QString>
#include <map>
#include <osg/Matrixf>
#include <osg/Uniform>
#include <osg/Vec2f>
#include <osg/Vec3f>
#include <osg/Vec4f>
#include <string>

class QOpenGLFunctions_4_1_Core;

namespace Vorna {
namespace Orvane {

// A raw OpenGL program outside the scene graph, for code that draws with OpenGL directly.
// Lives on the thread of the OpenGL context that was current at construction.
class GLShader
{
public:
    // One row of the caller's list; a row of type 0 ends the list.
    struct ShaderInfo {
        GLenum type;
        const char* source; // owned by the caller
        GLuint shader;      // written by loadShaders, 0 once the shader is deleted
    };

    explicit GLShader(ShaderInfo* list = nullptr);
    virtual ~GLShader();

    // Compiles every row and links them; the program id, or 0 on any failure.
    GLuint loadShaders(ShaderInfo* list);
    GLuint& getProgram() { return m_program; }

    void use();
    void cancel();
    void detach();

    void setBool(const std::string& name, bool value);
    void setInt(const std::string& name, int value);
    void setUint(const std::string& name, unsigned int value);
    void setFloat(const std::string& name, float value);
    void setVec2(const std::string& name, float x, float y);
    void setVec2(const std::string& name, const osg::Vec2f& value);
    void setVec3(const std::string& name, float x, float y, float z);
    void setVec3(const std::string& name, const osg::Vec3f& value);
    void setVec4(const std::string& name, float x, float y, float z, float w);
    void setVec4(const std::string& name, const osg::Vec4f& value);
    void setMat2(const std::string& name, const osg::Matrix2Template<float>& value);
    void setMat3(const std::string& name, const osg::Matrix3Template<float>& value);
    void setMat4(const std::string& name, const osg::Matrixf& value);

    // A vertex and a fragment stage read from resources, compiled and linked; `defines`, lines
    // of "#define", go in after each stage's version line.
    static GLShader* fromResources(const QString& vertexPath, const QString& fragmentPath,
                                   const std::string& defines = std::string());

    // Whole text of a resource or file; empty when it can't be opened.
    static std::string readShaderCode(const QString& path);
    static std::string readShaderCodeFullPath(const std::string& path);

    // "PROGRAM" checks the link status of a program, anything else the compile status of a
    // shader; true when it succeeded.
    bool checkCompileErrors(unsigned int id, std::string type);

private:
    GLint location(const std::string& name);
    void deleteShaders(ShaderInfo* list);

    QOpenGLFunctions_4_1_Core* m_glFunctions = nullptr;
    QPointer<QOpenGLContext> m_context;
    GLuint m_program = 0;
    std::map<GLenum, GLuint> m_shaders;
};

} // namespace Orvane
} // namespace Vorna
