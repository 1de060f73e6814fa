#include "uniform_defaults.h"

#include <QMutex>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <map>
#include <memory>
#include <osg/Program>
#include <osg/State>
#include <osg/Uniform>
#include <vector>

namespace Vorna {
namespace Orvane {

namespace {

using Defaults = std::vector<osg::ref_ptr<osg::Uniform>>;

struct ProgramDefaults {
    const osg::Program* program = nullptr;
    GLuint handle = 0;
    std::shared_ptr<const Defaults> uniforms;
};

QOpenGLShader::ShaderType qtStage(osg::Shader::Type type)
{
    switch (type) {
    case osg::Shader::VERTEX:
        return QOpenGLShader::Vertex;
    case osg::Shader::GEOMETRY:
        return QOpenGLShader::Geometry;
    case osg::Shader::COMPUTE:
        return QOpenGLShader::Compute;
    default:
        return QOpenGLShader::Fragment;
    }
}

// The value a freshly linked program holds, read back as an osg::Uniform of the same type.
osg::Uniform* readUniform(QOpenGLFunctions* gl, GLuint program, const char* name, GLenum type)
{
    const GLint location = gl->glGetUniformLocation(program, name);
    if (location < 0)
        return nullptr;
    GLfloat f[16] = {};
    GLint i[4] = {};
    switch (type) {
    case GL_FLOAT:
        gl->glGetUniformfv(program, location, f);
        return new osg::Uniform(name, f[0]);
    case GL_FLOAT_VEC2:
        gl->glGetUniformfv(program, location, f);
        return new osg::Uniform(name, osg::Vec2f(f[0], f[1]));
    case GL_FLOAT_VEC3:
        gl->glGetUniformfv(program, location, f);
        return new osg::Uniform(name, osg::Vec3f(f[0], f[1], f[2]));
    case GL_FLOAT_VEC4:
        gl->glGetUniformfv(program, location, f);
        return new osg::Uniform(name, osg::Vec4f(f[0], f[1], f[2], f[3]));
    case GL_FLOAT_MAT3: {
        gl->glGetUniformfv(program, location, f);
        osg::Matrix3 m;
        for (int k = 0; k < 9; ++k)
            m[k] = f[k];
        return new osg::Uniform(name, m);
    }
    case GL_FLOAT_MAT4:
        gl->glGetUniformfv(program, location, f);
        return new osg::Uniform(name, osg::Matrixf(f));
    case GL_INT:
        gl->glGetUniformiv(program, location, i);
        return new osg::Uniform(name, i[0]);
    case GL_BOOL:
        gl->glGetUniformiv(program, location, i);
        return new osg::Uniform(name, i[0] != 0);
    default:
        // Samplers keep their units from the state sets; other types have no initialisers here.
        return nullptr;
    }
}

// Links a private copy of the program, whose uniforms still hold their initialisers.
std::vector<osg::ref_ptr<osg::Uniform>> readDefaults(const osg::Program* program)
{
    std::vector<osg::ref_ptr<osg::Uniform>> defaults;
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!program || !context)
        return defaults;
    QOpenGLShaderProgram copy;
    for (unsigned int s = 0; s < program->getNumShaders(); ++s) {
        const osg::Shader* shader = program->getShader(s);
        if (!copy.addShaderFromSourceCode(qtStage(shader->getType()),
                                          shader->getShaderSource().c_str()))
            return defaults;
    }
    if (!copy.link())
        return defaults;
    QOpenGLFunctions* gl = context->functions();
    GLint count = 0;
    gl->glGetProgramiv(copy.programId(), GL_ACTIVE_UNIFORMS, &count);
    for (GLint u = 0; u < count; ++u) {
        char name[256];
        GLsizei length = 0;
        GLint size = 0;
        GLenum type = 0;
        gl->glGetActiveUniform(copy.programId(), static_cast<GLuint>(u), sizeof(name), &length,
                               &size, &type, name);
        const std::string text(name, static_cast<size_t>(length));
        // The scene graph feeds its own; arrays and blocks have no initialisers of ours.
        if (size != 1 || text.rfind("osg_", 0) == 0 ||
            text.find_first_of(".[") != std::string::npos)
            continue;
        if (osg::Uniform* uniform = readUniform(gl, copy.programId(), text.c_str(), type))
            defaults.push_back(uniform);
    }
    return defaults;
}

QMutex s_mutex;
std::map<const osg::Program::PerContextProgram*, ProgramDefaults> s_defaults;

// Shared, not borrowed: another render thread may refill the table while this one walks it.
std::shared_ptr<const Defaults> defaultsOf(const osg::Program::PerContextProgram* pcp)
{
    QMutexLocker lock(&s_mutex);
    ProgramDefaults& entry = s_defaults[pcp];
    // A PCP freed and allocated again at the same address may belong to another program or
    // link to another handle.
    if (entry.handle != pcp->getHandle() || entry.program != pcp->getProgram()) {
        entry.program = pcp->getProgram();
        entry.handle = pcp->getHandle();
        entry.uniforms = std::make_shared<const Defaults>(readDefaults(pcp->getProgram()));
    }
    return entry.uniforms;
}

// The deepest state set on the way up: OSG applies it for the draw without pushing it on the
// stack that getUniformMap() shows.
const osg::StateSet* leafStateSet(const osg::Drawable* drawable)
{
    const osg::Node* node = drawable;
    while (node) {
        if (const osg::StateSet* ss = node->getStateSet())
            return ss;
        node = node->getNumParents() ? node->getParent(0) : nullptr;
    }
    return nullptr;
}

} // namespace

void UniformDefaults::restore(osg::RenderInfo& renderInfo, const osg::Drawable* drawable)
{
    osg::State* state = renderInfo.getState();
    const osg::Program::PerContextProgram* pcp =
        state ? state->getLastAppliedProgramObject() : nullptr;
    if (!pcp || !pcp->getHandle())
        return;
    const osg::State::UniformMap& stack = state->getUniformMap();
    const osg::StateSet* leaf = leafStateSet(drawable);
    const std::shared_ptr<const Defaults> defaults = defaultsOf(pcp);
    for (const osg::ref_ptr<osg::Uniform>& uniform : *defaults) {
        const auto found = stack.find(uniform->getName());
        if (found != stack.end() && !found->second.uniformVec.empty())
            continue;
        if (leaf && leaf->getUniform(uniform->getName()))
            continue;
        pcp->apply(*uniform);
    }
}

void UniformDefaultsDrawCallback::drawImplementation(osg::RenderInfo& renderInfo,
                                                     const osg::Drawable* drawable) const
{
    UniformDefaults::restore(renderInfo, drawable);
    drawable->drawImplementation(renderInfo);
}

} // namespace Orvane
} // namespace Vorna
