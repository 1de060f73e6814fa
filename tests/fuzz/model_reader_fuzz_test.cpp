// The viewer's readers on mutated files of every format they open: each file gives a model
// with points or a message for the user, never a crash.
#include "fuzz_runs.h"
#include "model_reader.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

namespace {

QByteArray plyHeader(const char* format)
{
    return QByteArray("ply\nformat ") + format +
           " 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
           "property float nx\nproperty float ny\nproperty float nz\nproperty uchar red\n"
           "property uchar green\nproperty uchar blue\nelement face 1\n"
           "property list uchar int vertex_indices\nend_header\n";
}

template <typename T> void put(QByteArray& out, T value, bool bigEndian)
{
    T stored = bigEndian ? qToBigEndian(value) : qToLittleEndian(value);
    out.append(reinterpret_cast<const char*>(&stored), sizeof(T));
}

QByteArray binaryPly(bool bigEndian)
{
    QByteArray out = plyHeader(bigEndian ? "binary_big_endian" : "binary_little_endian");
    const float corners[3][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    for (const auto& c : corners) {
        for (float v : c)
            put(out, qFromLittleEndian<quint32>(reinterpret_cast<const uchar*>(&v)), bigEndian);
        for (float v : {0.0f, 0.0f, 1.0f})
            put(out, qFromLittleEndian<quint32>(reinterpret_cast<const uchar*>(&v)), bigEndian);
        out.append("\x80\x40\x20", 3);
    }
    out.append('\x03');
    for (qint32 i : {0, 1, 2})
        put(out, i, bigEndian);
    return out;
}

QByteArray binaryStl()
{
    QByteArray out(80, ' ');
    put<quint32>(out, 2, false);
    const float triangles[2][12] = {{0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0},
                                    {0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1, 0}};
    for (const auto& t : triangles) {
        out.append(reinterpret_cast<const char*>(t), sizeof(t));
        out.append("\0\0", 2);
    }
    return out;
}

struct Seed {
    const char* suffix;
    QByteArray data;
};

std::vector<Seed> seeds()
{
    return {
        {"ply", plyHeader("ascii") + "0 0 0 0 0 1 255 0 0\n1 0 0 0 0 1 0 255 0\n"
                                     "0 1 0 0 0 1 0 0 255\n3 0 1 2\n"},
        {"ply", binaryPly(false)},
        {"ply", binaryPly(true)},
        {"obj", "# cube corner\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 1\nvt 0 0\n"
                "f 1/1/1 2/1/1 3/1/1\n"},
        {"stl", "solid t\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\n"
                "vertex 0 1 0\nendloop\nendfacet\nendsolid t\n"},
        {"stl", binaryStl()},
        {"xyz", "0 0 0 0 0 1 255 128 0\n1 1 1 0 1 0 0 0 255\n2,2,2,1,0,0,10,20,30\n"},
        {"pts", "3\n0 0 0 7 255 0 0\n1 1 1 7 0 255 0\n2 2 2 7 0 0 255\n"},
        {"asc", "1 2 3\n4 5 6\n"},
    };
}

const char* const kTokens[] = {"nan",
                               "inf",
                               "-inf",
                               "-1",
                               "0",
                               "4294967295",
                               "2147483648",
                               "99999999999999999999",
                               "1e39",
                               "-0",
                               "\n",
                               " ",
                               "end_header\n",
                               "element vertex 1000000000\n",
                               "property list uint int x\n",
                               "f 0 -5 999999\n",
                               "facet normal\n",
                               "endsolid\n"};

QByteArray mutate(QByteArray data, std::mt19937_64& random)
{
    const auto pick = [&](std::size_t n) { return n ? random() % n : 0; };
    const int steps = 1 + static_cast<int>(pick(4));
    for (int s = 0; s < steps; ++s) {
        const int at = static_cast<int>(pick(data.size() + 1));
        switch (pick(7)) {
        case 0:
            if (!data.isEmpty()) {
                const int i = static_cast<int>(pick(data.size()));
                data[i] = static_cast<char>(data.at(i) ^ (1 << pick(8)));
            }
            break;
        case 1:
            if (!data.isEmpty())
                data[static_cast<int>(pick(data.size()))] = static_cast<char>(pick(256));
            break;
        case 2:
            data.truncate(at);
            break;
        case 3:
            data.insert(at, kTokens[pick(sizeof(kTokens) / sizeof(kTokens[0]))]);
            break;
        case 4: {
            // A run of the file repeated: counts stop matching the data.
            const int length = static_cast<int>(pick(64));
            data.insert(at, data.mid(at, length));
            break;
        }
        case 5: {
            const int length = static_cast<int>(pick(16));
            data.remove(at, length);
            break;
        }
        default: {
            // A number of the header or the body replaced by an interesting one.
            for (int i = at; i < data.size(); ++i)
                if (data[i] >= '0' && data[i] <= '9') {
                    int end = i;
                    while (end < data.size() && data[end] >= '0' && data[end] <= '9')
                        ++end;
                    data.replace(i, end - i, kTokens[pick(9)]);
                    break;
                }
            break;
        }
        }
    }
    return data;
}

} // namespace

TEST(ModelReaderFuzz, EveryMutatedFileGivesAModelOrAMessage)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const std::vector<Seed> corpus = seeds();
    // The seeds themselves read.
    for (std::size_t i = 0; i < corpus.size(); ++i) {
        const QString path = dir.filePath(QString("seed%1.%2").arg(i).arg(corpus[i].suffix));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(corpus[i].data);
        file.close();
        const LoadedModel model = loadModel(path);
        EXPECT_TRUE(model.node) << i << ": " << qPrintable(model.error);
    }

    auto random = OrvaneFuzz::generator();
    OrvaneFuzz::Figure figure("model_reader");
    const std::uint64_t total = OrvaneFuzz::runs(4000);
    std::uint64_t read = 0;
    for (; figure.inputs < total; ++figure.inputs) {
        if (figure.inputs && figure.inputs % 100000 == 0)
            figure.progress();
        const Seed& seed = corpus[random() % corpus.size()];
        const QByteArray data = mutate(seed.data, random);
        const QString path = dir.filePath(QString("input.") + seed.suffix);
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(data);
        file.close();
        const LoadedModel model = loadModel(path);
        if (model.node) {
            ASSERT_TRUE(model.error.isEmpty());
            ASSERT_GT(model.points, 0u);
            ++read;
        } else {
            ASSERT_TRUE(model.error.startsWith("could not read"))
                << figure.inputs << ": " << qPrintable(model.error);
        }
    }
    std::printf("model_reader read %llu of %llu mutated files\n",
                static_cast<unsigned long long>(read), static_cast<unsigned long long>(total));
}
