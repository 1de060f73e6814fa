// The live cloud's debug dump: what the GPU holds, written as text files for offline checks.
// Runs on the render thread, inside the cloud's draw, when the camera asks for it.
#include "incre_point_geomtry_apple.h"

#include "gl_shader.h"
#include "orvane_log.h"
#include "scene_flags.h"

#include <QDateTime>
#include <QDir>
#include <cmath>
#include <fstream>
#include <iostream>
#include <osg/Camera>
#include <osg/View>

namespace Vorna {
namespace Orvane {

namespace {

constexpr qint64 kReadPieceBytes = 1073741824;

osg::Uniform* saveRequest(osg::Camera* camera)
{
    if (!camera || !camera->getStateSet())
        return nullptr;
    return camera->getStateSet()->getUniform("saveIncreData");
}

bool hasNaN(const osg::Vec3f& v)
{
    return std::isnan(v.x()) || std::isnan(v.y()) || std::isnan(v.z());
}

// No NaN, and not all (near) zero: an unwritten table entry is all zero.
bool isValidMatrix(const osg::Matrixf& m)
{
    bool nonZero = false;
    for (int i = 0; i < 16; ++i) {
        const float value = m.ptr()[i];
        if (std::isnan(value))
            return false;
        nonZero = nonZero || std::fabs(value) > 1e-6f;
    }
    return nonZero;
}

bool openOutput(std::ofstream& out, const QString& path)
{
    out.open(path.toStdString(), std::ios::out | std::ios::trunc);
    if (!out.is_open()) {
        std::cerr << "Error opening output file\n";
        return false;
    }
    return true;
}

void writePointLine(std::ostream& out, const osg::Vec3f& p, const osg::Vec3f& n,
                    const osg::Vec3Array* colours, size_t i)
{
    out << p.x() << ' ' << p.y() << ' ' << p.z() << ' ' << n.x() << ' ' << n.y() << ' ' << n.z();
    if (colours && i < colours->size()) {
        const osg::Vec3f& c = (*colours)[i];
        out << ' ' << c.x() << ' ' << c.y() << ' ' << c.z();
    }
    out << '\n';
}

void writeRigid(const QString& dir, const osg::Vec3Array& positions, const osg::Vec3Array& normals,
                const osg::Vec3Array* colours)
{
    std::ofstream out;
    if (!openOutput(out, dir + "/rigid.asc"))
        return;
    for (size_t i = 0; i < positions.size(); ++i)
        writePointLine(out, positions[i], normals[i], colours, i);
}

void writeNonRigid(const QString& dir, const osg::Vec3Array& positions,
                   const osg::Vec3Array& normals, const osg::Vec3Array* colours,
                   const std::vector<int>& frameIds, const std::vector<osg::Matrixf>& matrices)
{
    std::ofstream out;
    if (!openOutput(out, dir + "/non_rigid.asc"))
        return;
    size_t unplaced = 0;
    for (size_t i = 0; i < positions.size(); ++i) {
        // Without a frame the shader doesn't place the point either.
        if (i >= frameIds.size() || frameIds[i] < 0 ||
            static_cast<size_t>(frameIds[i]) >= matrices.size()) {
            ++unplaced;
            continue;
        }
        const osg::Vec3f& original = positions[i];
        const osg::Vec3f moved = original * matrices[frameIds[i]];
        if (hasNaN(moved)) {
            std::cout << "Vertex " << i << " FrameId " << frameIds[i] << ":\n"
                      << "Original: (" << original.x() << ", " << original.y() << ", "
                      << original.z() << ")\n"
                      << "Transformed: (" << moved.x() << ", " << moved.y() << ", " << moved.z()
                      << ")\n"
                      << "Contains NaN: "
                      << "Yes"
                      << "\n";
            continue;
        }
        writePointLine(out, moved, normals[i], colours, i);
    }
    if (unplaced)
        qCInfo(orvane) << "checkIfSaveIncreDebugData"
                       << "points without a valid frame id, not in non_rigid.asc:" << unplaced;
}

void writeFrameMatrices(const QString& dir, const std::vector<osg::Matrixf>& matrices)
{
    std::ofstream out;
    if (!openOutput(out, dir + "/frame_matrix.txt"))
        return;
    out << "Matrix Data Check\n";
    for (size_t k = 0; k < matrices.size(); ++k) {
        const osg::Matrixf& m = matrices[k];
        out << "Matrix " << k + 1 << ":\n";
        for (int r = 0; r < 4; ++r)
            out << m(r, 0) << ' ' << m(r, 1) << ' ' << m(r, 2) << ' ' << m(r, 3) << '\n';
        out << "Valid: " << (isValidMatrix(m) ? "Yes" : "No") << "\n\n";
    }
}

template <typename T>
void writeIndexed(const QString& path, const char* header, const T* values, size_t count)
{
    std::ofstream out;
    if (!openOutput(out, path))
        return;
    out << header;
    for (size_t i = 0; i < count; ++i)
        out << i << ", " << static_cast<int>(values[i]) << '\n';
}

} // namespace

QString IncrePointGeometryApple::debugDumpBaseDir() const
{
    return QStringLiteral("/Users/Data/asc_models");
}

void IncrePointGeometryApple::checkIfSaveIncreDebugData(osg::RenderInfo& renderInfo)
{
    osg::Uniform* request = saveRequest(renderInfo.getCurrentCamera());
    if (!request && renderInfo.getView())
        request = saveRequest(renderInfo.getView()->getCamera());
    bool wanted = false;
    if (!request || !request->get(wanted) || !wanted)
        return;
    // One dump a request.
    request->set(false);

    logCutPlaneUniforms();
    osg::ref_ptr<osg::Vec3Array> positions, normals, colours;
    osg::ref_ptr<osg::ByteArray> states;
    if (!fetchAndUpdateAttrib(positions, normals, colours, states))
        return;

    const QString base = debugDumpBaseDir();
    QDir root;
    if (!root.mkpath(base)) {
        std::cerr << "Failed to create directory: " << base.toStdString() << std::endl;
        return;
    }
    std::cout << "Directory created or already exists: " << base.toStdString() << std::endl;
    const QString dir =
        base + "/" + QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd_hhmmss"));
    if (!root.mkpath(dir)) {
        std::cerr << "Failed to create directory: " << dir.toStdString() << std::endl;
        return;
    }

    writeRigid(dir, *positions, *normals, colours.get());
    if (m_bRigidScan)
        return;
    std::vector<int> frameIds;
    std::vector<osg::Matrixf> matrices;
    getFrameIdAndMatrixFromGLBuffer(frameIds, matrices);
    writeNonRigid(dir, *positions, *normals, colours.get(), frameIds, matrices);
    writeFrameMatrices(dir, matrices);
    writeIndexed(dir + "/frame_id.txt", "Index, Frame ID\n", frameIds.data(), frameIds.size());
    writeIndexed(dir + "/state_value.txt", "Index, State Value\n",
                 states->empty() ? nullptr : &states->front(), states->size());
}

void IncrePointGeometryApple::logCutPlaneUniforms()
{
    // Read from the program that tests the plane: the one drawn while none exists has no such
    // uniforms. It is drawn with only while a plane exists, so it learns here when none does.
    GLShader* tester = m_gl ? drawVariant(m_bRigidScan, true) : nullptr;
    const GLuint program = tester ? tester->getProgram() : 0;
    if (program && !SceneFlags::rectCutPlaneExists()) {
        const GLint location = m_gl->glGetUniformLocation(program, "isCutPlaneExist");
        if (location >= 0)
            m_gl->glProgramUniform1i(program, location, 0);
    }
    if (!m_gl || !program) {
        qCWarning(orvane) << "logCutPlaneUniforms"
                          << "Invalid GL function or program in logCutPlaneUniforms";
        return;
    }
    qCInfo(orvane) << "logCutPlaneUniforms"
                   << "=== CutPlane Uniform Values (from GPU Shader) ===";
    const GLint exists = m_gl->glGetUniformLocation(program, "isCutPlaneExist");
    if (exists < 0) {
        qCWarning(orvane) << "logCutPlaneUniforms"
                          << "isCutPlaneExist uniform location not found";
    } else {
        GLint value = 0;
        m_gl->glGetUniformiv(program, exists, &value);
        qCInfo(orvane) << "logCutPlaneUniforms"
                       << "isCutPlaneExist:" << (value != 0);
    }
    const struct {
        const char* name;
        const char* missing;
    } vectors[] = {{"direction", "direction uniform location not found"},
                   {"center", "center uniform location not found"}};
    for (const auto& [name, missing] : vectors) {
        const GLint location = m_gl->glGetUniformLocation(program, name);
        if (location < 0) {
            qCWarning(orvane) << "logCutPlaneUniforms" << missing;
            continue;
        }
        GLfloat v[3] = {0.0f, 0.0f, 0.0f};
        m_gl->glGetUniformfv(program, location, v);
        qCInfo(orvane).nospace() << "logCutPlaneUniforms " << name << ": (" << v[0] << ", " << v[1]
                                 << ", " << v[2] << ")";
    }
    const GLint select = m_gl->glGetUniformLocation(program, "selectIndex");
    if (select < 0) {
        qCWarning(orvane) << "logCutPlaneUniforms"
                          << "selectIndex uniform location not found";
    } else {
        GLfloat value = 0.0f;
        m_gl->glGetUniformfv(program, select, &value);
        qCInfo(orvane) << "logCutPlaneUniforms"
                       << "selectIndex:" << value;
    }
}

void IncrePointGeometryApple::getFrameIdAndMatrixFromGLBuffer(std::vector<int>& frameIds,
                                                              std::vector<osg::Matrixf>& matrices)
{
    frameIds.clear();
    matrices.clear();
    const qint64 needed = static_cast<qint64>(m_wholeSize) * 4;
    const GLuint buffer = m_increGLBuffer.wholeFrameIdBuffer;
    if (m_gl && buffer && needed > 0 && getBufferByteSize(buffer) >= needed) {
        frameIds.resize(m_wholeSize);
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
        // Large clouds come back in pieces: one read must stay below what a driver accepts.
        for (qint64 offset = 0; offset < needed; offset += kReadPieceBytes)
            m_gl->glGetBufferSubData(GL_ARRAY_BUFFER, offset,
                                     std::min(kReadPieceBytes, needed - offset),
                                     reinterpret_cast<char*>(frameIds.data()) + offset);
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    }
    const osg::Image* image = m_frameRtTexture.image.get();
    if (!image || !image->data())
        return;
    const size_t count = image->getTotalSizeInBytes() / 64;
    const float* data = reinterpret_cast<const float*>(image->data());
    matrices.reserve(count);
    for (size_t k = 0; k < count; ++k)
        matrices.emplace_back(data + 16 * k);
}

} // namespace Orvane
} // namespace Vorna
