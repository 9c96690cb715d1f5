// One desktop program per user. The first launch holds a lock file and listens
// on a local socket beside it; a second launch hands its files to the first
// over that socket (the running window opens them and comes to the front) or,
// when it cannot, says why instead of leaving silently.
#pragma once

#include <QLockFile>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QLocalServer;


namespace vx {

class MainWindow;

// The folder of the lock and the socket: the user's runtime folder, else the
// temporary folder.
QString instance_dir();
QString instance_lock_path();
QString instance_socket_name();

// Listens for the files of later launches.
class InstanceServer : public QObject {
    Q_OBJECT
public:
    explicit InstanceServer(QObject* parent = nullptr);
    ~InstanceServer() override;
    // Listens on name; a socket left by a crashed run is removed first (the
    // caller holds the lock, so nobody else listens there). False with the
    // reason in why.
    bool listen(const QString& name, QString* why);
    // Called on the event loop with the absolute paths a later launch passed
    // (possibly none: it only asks for the window).
    std::function<void(const QStringList& files)> on_files;

private:
    QLocalServer* server_;
};

// The request of a second launch: a greeting line, one percent-encoded path
// per line, and "END". Returns the paths of a whole, well-formed request; false
// for anything else (a request still arriving is not yet whole).
bool parse_hand_over(const QByteArray& request, QStringList& files);
QByteArray hand_over_request(const QStringList& files);

// Sends files to the instance listening on name and waits for its answer.
// Returns true when it took them; otherwise false with the reason in why.
bool hand_over(const QString& name, const QStringList& files, int timeout_ms, QString* why);

// The start of a launch: the first takes the lock and listens; a later one
// hands its files over.
enum class InstanceStart { First, HandedOver, Failed };
struct InstanceGuard {
    std::unique_ptr<QLockFile> lock;
    std::unique_ptr<InstanceServer> server;
};
InstanceStart claim_instance(InstanceGuard& guard, const QStringList& files, QString* why);

// Opens each path in the window: ".pks" files as peak lists, others through
// the opening road. Returns the number opened.
int open_paths(MainWindow& window, const QStringList& paths);

}  // namespace vx
