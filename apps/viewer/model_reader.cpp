#include "model_reader.h"

#include <cctype>
#include <cmath>
#include <cstring>

#include "canvas3d_shadermanager.h"
#include "orvane_singleton.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <QtEndian>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Light>
#include <osg/NodeVisitor>
#include <osgDB/ReadFile>
#include <osgUtil/SmoothingVisitor>

namespace {

// Geometry drawn inside QtQuick needs vertex array objects of its own.
class PrepareForCanvas : public osg::NodeVisitor
{
public:
    PrepareForCanvas() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    void apply(osg::Drawable& drawable) override
    {
        drawable.setUseDisplayList(false);
        drawable.setUseVertexBufferObjects(true);
        drawable.setUseVertexArrayObject(true);
        if (const osg::Geometry* geometry = drawable.asGeometry())
            if (geometry->getVertexArray())
                points += geometry->getVertexArray()->getNumElements();
    }
    size_t points = 0;
};

bool isSurface(const osg::Geometry& geometry)
{
    for (unsigned int i = 0; i < geometry.getNumPrimitiveSets(); ++i) {
        const GLenum mode = geometry.getPrimitiveSet(i)->getMode();
        if (mode == GL_TRIANGLES || mode == GL_TRIANGLE_STRIP || mode == GL_TRIANGLE_FAN ||
            mode == GL_QUADS || mode == GL_QUAD_STRIP || mode == GL_POLYGON)
            return true;
    }
    return false;
}

// Surfaces are drawn by the library's mesh shading model: the same arrays feed its attribute
// slots, and the classic ones stay for bounds and picking.
class UseMeshShading : public osg::NodeVisitor
{
public:
    UseMeshShading() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    void apply(osg::Drawable& drawable) override
    {
        osg::Geometry* geometry = drawable.asGeometry();
        if (!geometry || !isSurface(*geometry) || !geometry->getVertexArray() ||
            !geometry->getNormalArray() ||
            geometry->getNormalArray()->getBinding() != osg::Array::BIND_PER_VERTEX)
            return;
        geometry->setVertexAttribArray(0, geometry->getVertexArray(), osg::Array::BIND_PER_VERTEX);
        geometry->setVertexAttribArray(1, geometry->getNormalArray(), osg::Array::BIND_PER_VERTEX);
        const osg::Array* colors = geometry->getColorArray();
        const bool vertexColors =
            colors && colors->getBinding() == osg::Array::BIND_PER_VERTEX &&
            colors->getNumElements() == geometry->getVertexArray()->getNumElements();
        if (vertexColors)
            geometry->setVertexAttribArray(2, geometry->getColorArray(),
                                           osg::Array::BIND_PER_VERTEX);
        geometry->getOrCreateStateSet()->setAttributeAndModes(
            Vorna::Orvane::OrvaneSingleton::instance()->getShaderMgr()->getShader(
                vertexColors ? "meshcolor" : "mesh"));
    }
};

// PLY files are read here rather than by OpenSceneGraph's reader, which trusts the file: a
// property before any element, a count past the file's size, a body shorter than its header
// says or a face naming a vertex that does not exist crash it or make it allocate without end.
struct PlyProperty {
    QByteArray name;
    int countSize = 0; // bytes of a list's count; 0 for a plain property
    int valueSize = 0;
    bool valueFloat = false;
    bool valueSigned = false;
};

struct PlyElement {
    QByteArray name;
    qint64 count = 0;
    std::vector<PlyProperty> properties;
};

// Bytes of a PLY scalar type, 0 for an unknown one.
int plyTypeSize(const QByteArray& type, bool* isFloat = nullptr, bool* isSigned = nullptr)
{
    static const struct {
        const char* name;
        int size;
        bool isFloat, isSigned;
    } kTypes[] = {
        {"char", 1, false, true},   {"uchar", 1, false, false},  {"int8", 1, false, true},
        {"uint8", 1, false, false}, {"short", 2, false, true},   {"ushort", 2, false, false},
        {"int16", 2, false, true},  {"uint16", 2, false, false}, {"int", 4, false, true},
        {"uint", 4, false, false},  {"int32", 4, false, true},   {"uint32", 4, false, false},
        {"float", 4, true, true},   {"float32", 4, true, true},  {"double", 8, true, true},
        {"float64", 8, true, true}};
    for (const auto& t : kTypes)
        if (type == t.name) {
            if (isFloat)
                *isFloat = t.isFloat;
            if (isSigned)
                *isSigned = t.isSigned;
            return t.size;
        }
    return 0;
}

// Reads the next value of the body as a double; false past the end or on a malformed word.
class PlyBody
{
public:
    PlyBody(const QByteArray& data, int offset, int format)
        : m_data(data), m_at(offset), m_format(format)
    {
    }

    bool next(int size, bool isFloat, bool isSigned, double& value)
    {
        if (m_format == 0)
            return nextWord(value);
        if (m_at + size > m_data.size())
            return false;
        unsigned char bytes[8];
        for (int i = 0; i < size; ++i)
            bytes[i] = static_cast<unsigned char>(
                m_data[m_at + (m_format == 2 ? size - 1 - i : i)]); // to little endian
        m_at += size;
        quint64 raw = 0;
        for (int i = size - 1; i >= 0; --i)
            raw = (raw << 8) | bytes[i];
        if (isFloat) {
            if (size == 4) {
                float f;
                const quint32 r = static_cast<quint32>(raw);
                std::memcpy(&f, &r, 4);
                value = f;
            } else {
                std::memcpy(&value, &raw, 8);
            }
        } else if (isSigned) {
            const int shift = 64 - 8 * size;
            value = static_cast<double>(static_cast<qint64>(raw << shift) >> shift);
        } else {
            value = static_cast<double>(raw);
        }
        return true;
    }

private:
    bool nextWord(double& value)
    {
        while (m_at < m_data.size() && std::isspace(static_cast<unsigned char>(m_data[m_at])))
            ++m_at;
        const int start = m_at;
        while (m_at < m_data.size() && !std::isspace(static_cast<unsigned char>(m_data[m_at])))
            ++m_at;
        if (m_at == start)
            return false;
        bool ok = false;
        value = m_data.mid(start, m_at - start).toDouble(&ok);
        return ok;
    }

    const QByteArray& m_data;
    int m_at;
    int m_format; // 0 ascii, 1 little endian, 2 big endian
};

// A mesh (or, with no faces, a point set) of the file; null when the file is damaged.
osg::ref_ptr<osg::Geometry> readPly(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    const QByteArray data = file.readAll();
    const qint64 size = data.size();
    int at = 0;
    const auto readLine = [&](QByteArray& line) {
        const int end = data.indexOf('\n', at);
        if (end < 0 || end - at > 4096)
            return false;
        line = data.mid(at, end - at);
        at = end + 1;
        return true;
    };
    QByteArray line;
    if (!readLine(line) || line.trimmed() != "ply")
        return nullptr;
    int format = -1;
    std::vector<PlyElement> elements;
    for (int lines = 0;; ++lines) {
        if (lines > 10000 || !readLine(line))
            return nullptr;
        const QList<QByteArray> words = line.simplified().split(' ');
        const QByteArray& key = words.value(0);
        if (key == "end_header")
            break;
        if (key == "comment" || key == "obj_info" || key.isEmpty())
            continue;
        if (key == "format") {
            static const QList<QByteArray> kFormats = {"ascii", "binary_little_endian",
                                                       "binary_big_endian"};
            format = kFormats.indexOf(words.value(1));
            if (words.size() != 3 || format < 0)
                return nullptr;
        } else if (key == "element") {
            bool ok = false;
            const qint64 count = words.value(2).toLongLong(&ok);
            // Every element takes at least one byte of the file.
            if (words.size() != 3 || !ok || count < 0 || count > size)
                return nullptr;
            elements.push_back({words.value(1), count, {}});
        } else if (key == "property") {
            if (elements.empty())
                return nullptr;
            PlyProperty property;
            const bool list = words.value(1) == "list";
            if (list) {
                property.countSize = plyTypeSize(words.value(2));
                property.valueSize =
                    plyTypeSize(words.value(3), &property.valueFloat, &property.valueSigned);
                if (words.size() != 5 || !property.countSize || !property.valueSize)
                    return nullptr;
                property.name = words.value(4);
            } else {
                property.valueSize =
                    plyTypeSize(words.value(1), &property.valueFloat, &property.valueSigned);
                if (words.size() != 3 || !property.valueSize)
                    return nullptr;
                property.name = words.value(2);
            }
            elements.back().properties.push_back(property);
        } else {
            return nullptr;
        }
    }
    if (format < 0)
        return nullptr;

    qint64 vertices = 0;
    for (const PlyElement& element : elements)
        if (element.name == "vertex")
            vertices += element.count;
    PlyBody body(data, at, format);
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array;
    osg::ref_ptr<osg::DrawElementsUInt> triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    bool hasNormals = false, hasColors = false;
    for (const PlyElement& element : elements) {
        const bool isVertex = element.name == "vertex";
        // Where each plain property of a vertex goes: 0-2 position, 3-5 normal, 6-9 colour.
        std::vector<int> targets;
        static const char* const kSlots[] = {"x",  "y",   "z",     "nx",   "ny",
                                             "nz", "red", "green", "blue", "alpha"};
        for (const PlyProperty& property : element.properties) {
            int slot = -1;
            for (int k = 0; isVertex && !property.countSize && k < 10; ++k)
                if (property.name == kSlots[k])
                    slot = k;
            hasNormals |= slot >= 3 && slot <= 5;
            hasColors |= slot >= 6;
            targets.push_back(slot);
        }
        const bool faces = element.name == "face" || element.name == "tristrips";
        const auto isIndexList = [faces](const PlyProperty& property) {
            return faces && property.countSize &&
                   (property.name == "vertex_indices" || property.name == "vertex_index");
        };
        for (qint64 i = 0; i < element.count; ++i) {
            float vertex[10] = {0, 0, 0, 0, 0, 0, 1, 1, 1, 1};
            std::vector<GLuint> face;
            for (std::size_t p = 0; p < element.properties.size(); ++p) {
                const PlyProperty& property = element.properties[p];
                double count = 1.0;
                if (property.countSize &&
                    (!body.next(property.countSize, false, false, count) || count < 0.0 ||
                     count > size || count != std::floor(count)))
                    return nullptr;
                for (qint64 k = 0; k < static_cast<qint64>(count); ++k) {
                    double value = 0.0;
                    if (!body.next(property.valueSize, property.valueFloat, property.valueSigned,
                                   value))
                        return nullptr;
                    // Strips mark their restarts with -1.
                    const bool restart = element.name == "tristrips" && value == -1.0;
                    if (isIndexList(property) && !restart &&
                        !(value >= 0.0 && value < static_cast<double>(vertices)))
                        return nullptr;
                    if (isIndexList(property) && element.name == "face")
                        face.push_back(static_cast<GLuint>(value));
                    if (targets[p] >= 0) {
                        // Integer colours run 0..255.
                        const bool byteColor = targets[p] >= 6 && !property.valueFloat;
                        vertex[targets[p]] = static_cast<float>(byteColor ? value / 255.0 : value);
                    }
                }
            }
            if (isVertex) {
                positions->push_back(osg::Vec3(vertex[0], vertex[1], vertex[2]));
                normals->push_back(osg::Vec3(vertex[3], vertex[4], vertex[5]));
                colors->push_back(osg::Vec4(vertex[6], vertex[7], vertex[8], vertex[9]));
            }
            // Polygons as fans; fewer than three corners make no face.
            for (std::size_t k = 2; k < face.size(); ++k) {
                triangles->push_back(face[0]);
                triangles->push_back(face[k - 1]);
                triangles->push_back(face[k]);
            }
        }
    }
    if (positions->empty())
        return nullptr;
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(positions.get());
    if (hasNormals)
        geometry->setNormalArray(normals.get(), osg::Array::BIND_PER_VERTEX);
    if (hasColors)
        geometry->setColorArray(colors.get(), osg::Array::BIND_PER_VERTEX);
    if (triangles->empty())
        geometry->addPrimitiveSet(
            new osg::DrawArrays(GL_POINTS, 0, static_cast<GLsizei>(positions->size())));
    else
        geometry->addPrimitiveSet(triangles.get());
    return geometry;
}

// OpenSceneGraph's OBJ reader indexes its arrays with the face indices as written: one past the
// vertices read so far crashes it. Each index of a face, line or point, absolute or relative,
// must name a vertex, texture coordinate or normal defined before it. `text` is read a line
// per line feed.
bool objLinesAreSound(const QByteArray& text)
{
    qint64 counts[3] = {0, 0, 0}; // v, vt, vn
    for (int start = 0; start < text.size();) {
        int end = text.indexOf('\n', start);
        if (end < 0)
            end = text.size();
        const QByteArray line = text.mid(start, end - start).simplified();
        start = end + 1;
        // The reader joins a line ending in a backslash with the next one.
        if (line.endsWith('\\'))
            return false;
        const QList<QByteArray> words = line.split(' ');
        const QByteArray& key = words.value(0);
        const int kind = key == "v" ? 0 : key == "vt" ? 1 : key == "vn" ? 2 : -1;
        if (kind >= 0) {
            // A vertex the reader would skip would shift every index after it.
            const int needed = kind == 1 ? 2 : 3;
            for (int w = 1; w <= needed; ++w) {
                bool ok = false;
                const double value = words.value(w).toDouble(&ok);
                if (!ok || !std::isfinite(value))
                    return false;
            }
            ++counts[kind];
            continue;
        }
        if (key != "f" && key != "l" && key != "p")
            continue;
        // Normals are computed from a face's first three corners.
        if (key == "f" && words.size() < 4)
            return false;
        for (int w = 1; w < words.size(); ++w) {
            const QList<QByteArray> parts = words[w].split('/');
            for (int k = 0; k < parts.size() && k < 3; ++k) {
                if (parts[k].isEmpty() && k > 0)
                    continue;
                bool ok = false;
                const qint64 index = parts[k].toLongLong(&ok);
                if (!ok || index == 0 || index > counts[k] || index < -counts[k])
                    return false;
            }
            if (parts.size() > 3)
                return false;
        }
    }
    return true;
}

bool objIndicesAreSound(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QByteArray text = file.readAll();
    if (!objLinesAreSound(text))
        return false;
    // The reader also ends a line at a lone carriage return: "f 1\r2 3" is a one-corner face
    // to it. The file must be sound read that way too.
    return !text.contains('\r') || objLinesAreSound(text.replace('\r', '\n'));
}

// OpenSceneGraph's STL reader takes a file whose size is not that of its triangle count as text
// and trusts the text's layout. A text file must be solid / facet normal x y z / outer loop /
// three vertex x y z / endloop / endfacet ... endsolid, every number a number.
bool stlIsSound(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray head = file.read(84);
    if (head.size() == 84) {
        const quint32 count = qFromLittleEndian<quint32>(head.constData() + 80);
        if (file.size() == 84 + 50 * qint64(count))
            return true;
    }
    file.seek(0);
    const auto numbers = [](const QList<QByteArray>& words, int from) {
        if (words.size() != from + 3)
            return false;
        for (int i = from; i < from + 3; ++i) {
            bool ok = false;
            words[i].toFloat(&ok);
            if (!ok)
                return false;
        }
        return true;
    };
    // 0 outside a solid, 1 in a solid, 2 in a facet, 3 in its loop.
    int state = 0, vertices = 0, facets = 0;
    while (!file.atEnd()) {
        const QList<QByteArray> words = file.readLine(4096).simplified().split(' ');
        const QByteArray& key = words.value(0);
        if (key.isEmpty())
            continue;
        if (key == "solid" && state == 0)
            state = 1;
        else if (key == "facet" && state == 1 && words.value(1) == "normal" && numbers(words, 2))
            state = 2;
        else if (key == "outer" && state == 2 && words.value(1) == "loop")
            state = 3, vertices = 0;
        else if (key == "vertex" && state == 3 && numbers(words, 1))
            ++vertices;
        else if (key == "endloop" && state == 3 && vertices == 3)
            state = 2;
        else if (key == "endfacet" && state == 2)
            state = 1, ++facets;
        else if (key == "endsolid" && state == 1)
            state = 0;
        else
            return false;
    }
    return state == 0 && facets > 0;
}

LoadedModel failure(const QString& path, const QString& why)
{
    LoadedModel model;
    model.error = QString("could not read %1: %2").arg(path, why);
    return model;
}

} // namespace

LoadedModel readPointList(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return failure(path, file.errorString());
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array;
    int columns = -1;
    bool colorsIn255 = false;
    int lineNumber = 0;
    QTextStream in(&file);
    while (!in.atEnd()) {
        const QString line = in.readLine().trimmed();
        ++lineNumber;
        if (line.isEmpty() || line.startsWith('#') || line.startsWith("//"))
            continue;
        const QStringList fields = line.split(QRegExp("[\\s,;]+"), Qt::SkipEmptyParts);
        float v[9];
        int count = 0;
        for (const QString& field : fields) {
            bool ok = false;
            const float value = field.toFloat(&ok);
            if (!ok || count == 9)
                return failure(path, QString("line %1 is not a list of numbers").arg(lineNumber));
            v[count++] = value;
        }
        // PTS files begin with the point count alone.
        if (count == 1 && vertices->empty() && columns < 0)
            continue;
        if (columns < 0) {
            if (count != 3 && count != 6 && count != 9 && count != 4 && count != 7)
                return failure(path, QString("line %1: expected x y z, optionally a normal and a "
                                             "colour, found %2 values")
                                         .arg(lineNumber)
                                         .arg(count));
            columns = count;
        } else if (count != columns) {
            return failure(path, QString("line %1 has %2 values where the file has %3 (truncated?)")
                                     .arg(lineNumber)
                                     .arg(count)
                                     .arg(columns));
        }
        vertices->push_back(osg::Vec3(v[0], v[1], v[2]));
        // 4 or 7 columns: an intensity or a colour without normal (x y z r g b i).
        const bool hasNormal = columns == 6 || columns == 9;
        if (hasNormal)
            normals->push_back(osg::Vec3(v[3], v[4], v[5]));
        const int colorAt = columns == 9 ? 6 : (columns == 7 ? 3 : -1);
        if (colorAt > 0) {
            const osg::Vec3 c(v[colorAt], v[colorAt + 1], v[colorAt + 2]);
            colorsIn255 = colorsIn255 || c.x() > 1.0f || c.y() > 1.0f || c.z() > 1.0f;
            colors->push_back(osg::Vec4(c, 1.0f));
        }
    }
    if (vertices->empty())
        return failure(path, "no points in the file");
    if (colorsIn255)
        for (osg::Vec4& c : *colors)
            c = osg::Vec4(c.r() / 255.0f, c.g() / 255.0f, c.b() / 255.0f, 1.0f);

    auto* geometry = new osg::Geometry;
    geometry->setVertexArray(vertices.get());
    if (!normals->empty())
        geometry->setNormalArray(normals.get(), osg::Array::BIND_PER_VERTEX);
    if (!colors->empty()) {
        geometry->setColorArray(colors.get(), osg::Array::BIND_PER_VERTEX);
    } else {
        osg::ref_ptr<osg::Vec4Array> one = new osg::Vec4Array;
        one->push_back(osg::Vec4(0.05f, 0.695f, 1.0f, 1.0f));
        geometry->setColorArray(one.get(), osg::Array::BIND_OVERALL);
    }
    geometry->addPrimitiveSet(
        new osg::DrawArrays(GL_POINTS, 0, static_cast<GLsizei>(vertices->size())));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    LoadedModel model;
    model.node = geode;
    PrepareForCanvas prepare;
    geode->accept(prepare);
    model.points = prepare.points;
    return model;
}

LoadedModel loadModel(const QString& path)
{
    if (!QFileInfo::exists(path))
        return failure(path, "no such file");
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == "xyz" || suffix == "asc" || suffix == "txt" || suffix == "pts")
        return readPointList(path);
    if (suffix != "ply" && suffix != "obj" && suffix != "stl")
        return failure(path, "unsupported format; use PLY, OBJ, STL, XYZ, ASC, TXT or PTS");
    if ((suffix == "obj" && !objIndicesAreSound(path)) || (suffix == "stl" && !stlIsSound(path)))
        return failure(path, "the file is damaged, truncated or empty");
    osg::ref_ptr<osg::Node> node;
    if (suffix == "ply") {
        if (osg::ref_ptr<osg::Geometry> geometry = readPly(path)) {
            osg::ref_ptr<osg::Geode> geode = new osg::Geode;
            geode->addDrawable(geometry.get());
            node = geode;
        }
    } else {
        node = osgDB::readNodeFile(path.toStdString());
    }
    if (!node || !node->getBound().valid())
        return failure(path, "the file is damaged, truncated or empty");
    PrepareForCanvas prepare;
    node->accept(prepare);
    if (prepare.points == 0)
        return failure(path, "the file holds no geometry");
    // Faces without normals get smooth ones, which the shading needs.
    osgUtil::SmoothingVisitor smooth;
    node->accept(smooth);
    UseMeshShading shading;
    node->accept(shading);
    // Point-only files keep the fixed pipeline, with a light of their own.
    osg::StateSet* ss = node->getOrCreateStateSet();
    auto* light = new osg::Light(0);
    light->setPosition(osg::Vec4(0.3f, -1.0f, 0.6f, 0.0f));
    light->setDiffuse(osg::Vec4(0.85f, 0.85f, 0.85f, 1.0f));
    light->setAmbient(osg::Vec4(0.25f, 0.25f, 0.25f, 1.0f));
    ss->setAttributeAndModes(light);
    ss->setMode(GL_LIGHTING, osg::StateAttribute::ON);
    LoadedModel model;
    model.node = node;
    model.points = prepare.points;
    return model;
}
