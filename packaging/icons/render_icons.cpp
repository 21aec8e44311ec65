#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>
#include <cstdlib>

// Draws a picture in the sizes that shells ask for. Arguments: PICTURE.svg FOLDER SIZE...
// Makes FOLDER/SIZExSIZE/apps/PICTURE.png, the folders are there.
int main(int argc, char** argv) {
    QSvgRenderer picture;
    if (argc < 4 || !picture.load(QString(argv[1]))) {
        std::fputs("Usage: RenderIcons PICTURE.svg FOLDER SIZE...\n", stderr);
        return 2;
    }
    const QString name = QFileInfo(argv[1]).completeBaseName();
    for (int i = 3; i < argc; ++i) {
        const int size = std::atoi(argv[i]);
        QImage image(size, size, QImage::Format_ARGB32);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        picture.render(&painter);
        painter.end();
        const QString file = QString("%1/%2x%2/apps/%3.png").arg(argv[2]).arg(size).arg(name);
        if (!image.save(file)) {
            std::fprintf(stderr, "RenderIcons: %s cannot be written\n", qPrintable(file));
            return 1;
        }
    }
    return 0;
}
