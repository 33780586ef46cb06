// Runs a fuzz target over its corpus without libFuzzer, so that the normal and the sanitized
// builds replay every saved input (seeds and past crashes) as an ordinary test.
#include <QDirIterator>
#include <QFile>

#include <cstdio>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    QStringList inputs;
    for (int i = 1; i < argc; ++i) {
        const QString path = QFile::decodeName(argv[i]);
        QDirIterator files(path, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (files.hasNext())
            inputs.append(files.next());
        if (QFileInfo(path).isFile())
            inputs.append(path);
    }
    if (inputs.isEmpty()) {
        std::fprintf(stderr, "no inputs: give corpus folders or files\n");
        return 2;
    }
    for (const QString& input : inputs) {
        QFile file(input);
        const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size()));
    }
    std::printf("replayed %lld inputs\n", qint64(inputs.size()));
    return 0;
}
