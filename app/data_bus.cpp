#include "data_bus.hpp"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QSocketNotifier>

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

#include "graph_window.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"
#include "workspace/data_service.hpp"

namespace vx {

DataBusService::DataBusService(MainWindow* main) : QObject(main), main_(main) {}

DataBusService::~DataBusService() {
    if (!registered_) return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterObject(DATA_BUS_PATH);
    bus.unregisterService(DATA_BUS_NAME);
}

bool DataBusService::start() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        main_->ui().Console("No session bus: the data service is not offered.\n");
        return false;
    }
    if (!bus.registerObject(DATA_BUS_PATH, this, QDBusConnection::ExportAllSlots)) {
        main_->ui().Console("The data service object could not be registered.\n");
        return false;
    }
    if (!bus.registerService(DATA_BUS_NAME)) {
        bus.unregisterObject(DATA_BUS_PATH);
        main_->ui().Console(std::string("The bus name ") + DATA_BUS_NAME +
                            " is taken: the data service is not offered.\n");
        return false;
    }
    registered_ = true;
    return true;
}

QString DataBusService::Request(const QString& topic, const QString& item) {
    const GraphWindow* g = main_->active_graph();
    std::string reply, why;
    const int rc = DDE_Request(main_->workspace(), g ? &g->arrays() : nullptr, topic.toStdString(),
                               item.toStdString(), reply, why, main_->ui());
    if (rc < 0) {
        if (calledFromDBus())
            sendErrorReply(rc == -2 ? QDBusError::LimitsExceeded : QDBusError::InvalidArgs, QString::fromStdString(why));
        return {};
    }
    return QString::fromStdString(reply);
}

namespace {
int signal_pipe[2] = {-1, -1};
void on_signal(int) {
    const char c = 1;
    [[maybe_unused]] const auto n = ::write(signal_pipe[1], &c, 1);
}
}  // namespace

void quit_on_termination_signals() {
    if (signal_pipe[0] >= 0 || ::socketpair(AF_UNIX, SOCK_STREAM, 0, signal_pipe) != 0) return;
    auto* notifier = new QSocketNotifier(signal_pipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, QCoreApplication::instance(), [] {
        char c;
        [[maybe_unused]] const auto n = ::read(signal_pipe[0], &c, 1);
        // exit() rather than quit(): a signal does not ask the windows (and
        // so the user) whether to close; every event loop ends.
        QCoreApplication::exit(0);
    });
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
}

}  // namespace vx
