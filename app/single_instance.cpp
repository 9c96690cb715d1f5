#include "single_instance.hpp"

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>

#include "main_window.hpp"

namespace vx {

namespace {

// The request: a greeting line, one percent-encoded path per line, and "END".
// The answer: "OK" once the request is whole; the files are opened after it,
// so a message box the opening shows never holds up the second launch.
constexpr char greeting[] = "VANTORIX-OPEN 1";
constexpr qsizetype request_limit = 4 * 1024 * 1024;

}  // namespace

QString instance_dir() {
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty()) dir = QDir::tempPath();
    return dir;
}

QString instance_lock_path() { return instance_dir() + "/vantorix-analysis.lock"; }
QString instance_socket_name() { return instance_dir() + "/vantorix-analysis.socket"; }

bool parse_hand_over(const QByteArray& request, QStringList& files) {
    files.clear();
    if (request.size() > request_limit || !request.endsWith("\nEND\n")) return false;
    const QList<QByteArray> lines = request.split('\n');
    // The split leaves an empty last piece after the final newline.
    if (lines.size() < 3 || lines.front() != greeting || lines[lines.size() - 2] != "END") return false;
    QStringList paths;
    for (qsizetype i = 1; i + 2 < lines.size(); ++i) {
        if (lines[i].isEmpty() || lines[i] == "END") return false;
        const QString path = QUrl::fromPercentEncoding(lines[i]);
        if (!path.startsWith('/')) return false;  // the sender makes every path absolute
        paths << path;
    }
    files = paths;
    return true;
}

QByteArray hand_over_request(const QStringList& files) {
    QByteArray request = QByteArray(greeting) + '\n';
    for (const QString& f : files) request += QUrl::toPercentEncoding(QFileInfo(f).absoluteFilePath(), "/") + '\n';
    return request + "END\n";
}

InstanceServer::InstanceServer(QObject* parent) : QObject(parent), server_(new QLocalServer(this)) {
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    connect(server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = server_->nextPendingConnection()) {
            auto buffer = std::make_shared<QByteArray>();
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket, buffer] {
                buffer->append(socket->readAll());
                if (buffer->size() > request_limit) {
                    socket->abort();
                    return;
                }
                if (!buffer->endsWith("END\n")) return;
                QStringList files;
                const bool ok = parse_hand_over(*buffer, files);
                buffer->clear();
                if (!ok) {
                    socket->abort();
                    return;
                }
                socket->write("OK\n");
                socket->flush();
                socket->disconnectFromServer();
                QTimer::singleShot(0, this, [this, files] {
                    if (on_files) on_files(files);
                });
            });
        }
    });
}

InstanceServer::~InstanceServer() = default;

bool InstanceServer::listen(const QString& name, QString* why) {
    if (server_->listen(name)) return true;
    if (server_->serverError() == QAbstractSocket::AddressInUseError) {
        QLocalServer::removeServer(name);
        if (server_->listen(name)) return true;
    }
    if (why) *why = server_->errorString();
    return false;
}

bool hand_over(const QString& name, const QStringList& files, int timeout_ms, QString* why) {
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(timeout_ms)) {
        if (why) *why = "it does not listen for files (" + socket.errorString() + ")";
        return false;
    }
    socket.write(hand_over_request(files));
    if (!socket.waitForBytesWritten(timeout_ms)) {
        if (why) *why = "it did not take the request (" + socket.errorString() + ")";
        return false;
    }
    QByteArray answer;
    while (!answer.contains('\n')) {
        if (!socket.waitForReadyRead(timeout_ms)) {
            if (why) *why = "it did not answer within " + QString::number(timeout_ms / 1000.0) + " s";
            return false;
        }
        answer += socket.readAll();
    }
    if (!answer.startsWith("OK")) {
        if (why) *why = "it refused the request";
        return false;
    }
    return true;
}

InstanceStart claim_instance(InstanceGuard& guard, const QStringList& files, QString* why) {
    QDir().mkpath(instance_dir());
    guard.lock = std::make_unique<QLockFile>(instance_lock_path());
    if (guard.lock->tryLock(0)) {
        guard.server = std::make_unique<InstanceServer>();
        QString reason;
        // Without the socket this run still works; later launches then say why
        // they could not hand their files over.
        if (!guard.server->listen(instance_socket_name(), &reason)) guard.server.reset();
        return InstanceStart::First;
    }
    guard.lock.reset();
    QString reason;
    if (hand_over(instance_socket_name(), files, 5000, &reason)) return InstanceStart::HandedOver;
    if (why)
        *why = "Vantorix Analysis is already running, but " + reason + ".\n" +
               (files.isEmpty() ? QString("Switch to its window.")
                                : "Open the files from its File menu: " + files.join(", "));
    return InstanceStart::Failed;
}

int open_paths(MainWindow& window, const QStringList& paths) {
    int opened = 0;
    for (const QString& f : paths) {
        const int slot = f.endsWith(".pks", Qt::CaseInsensitive) ? window.open_peak_list(f.toStdString())
                                                                 : window.open_file(f.toStdString());
        if (slot >= 0) ++opened;
    }
    return opened;
}

}  // namespace vx
