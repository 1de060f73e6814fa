#include "model_reader.h"

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

// OpenSceneGraph's PLY reader trusts its header: a property before any element, a line short of
// words or a count past the file's size crash it or make it allocate without end. The header
// is checked here first.
bool plyHeaderIsSound(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const qint64 size = file.size();
    static const QList<QByteArray> kTypes = {
        "char", "uchar", "short", "ushort", "int",   "uint",   "float",   "double",
        "int8", "uint8", "int16", "uint16", "int32", "uint32", "float32", "float64"};
    if (file.readLine(64).trimmed() != "ply")
        return false;
    bool format = false, element = false;
    for (int lines = 0; lines < 10000 && !file.atEnd(); ++lines) {
        const QByteArray raw = file.readLine(4096);
        if (!raw.endsWith('\n'))
            return false;
        const QList<QByteArray> words = raw.simplified().split(' ');
        const QByteArray& key = words.value(0);
        if (key == "end_header")
            return format;
        if (key == "comment" || key == "obj_info" || key.isEmpty())
            continue;
        if (key == "format") {
            const QByteArray& kind = words.value(1);
            if (words.size() != 3 ||
                (kind != "ascii" && kind != "binary_little_endian" && kind != "binary_big_endian"))
                return false;
            format = true;
        } else if (key == "element") {
            bool ok = false;
            const qint64 count = words.value(2).toLongLong(&ok);
            // Every element takes at least one byte of the file.
            if (words.size() != 3 || !ok || count < 0 || count > size)
                return false;
            element = true;
        } else if (key == "property") {
            if (!element)
                return false;
            const bool list = words.value(1) == "list";
            if (list ? (words.size() != 5 || !kTypes.contains(words.value(2)) ||
                        !kTypes.contains(words.value(3)))
                     : (words.size() != 3 || !kTypes.contains(words.value(1))))
                return false;
        } else {
            return false;
        }
    }
    return false;
}

// OpenSceneGraph's OBJ reader indexes its arrays with the face indices as written: one past the
// vertices read so far crashes it. Each index of a face, line or point, absolute or relative,
// must name a vertex, texture coordinate or normal defined before it.
bool objIndicesAreSound(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    qint64 counts[3] = {0, 0, 0}; // v, vt, vn
    while (!file.atEnd()) {
        const QList<QByteArray> words = file.readLine().simplified().split(' ');
        const QByteArray& key = words.value(0);
        if (key == "v")
            ++counts[0];
        else if (key == "vt")
            ++counts[1];
        else if (key == "vn")
            ++counts[2];
        if (key != "f" && key != "l" && key != "p")
            continue;
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
    if ((suffix == "ply" && !plyHeaderIsSound(path)) ||
        (suffix == "obj" && !objIndicesAreSound(path)) || (suffix == "stl" && !stlIsSound(path)))
        return failure(path, "the file is damaged, truncated or empty");
    osg::ref_ptr<osg::Node> node = osgDB::readNodeFile(path.toStdString());
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
