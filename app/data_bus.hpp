// The data service on the session bus: the desktop program owns
// org.vantorix.FTMSAnalysis and answers Request(topic, item) for the active
// window with the replies of workspace/data_service.hpp. A request without an
// answer gets an error reply at once, so no client waits for its timeout.
#pragma once

#include <QDBusContext>
#include <QObject>
#include <QString>

namespace vx {

class MainWindow;

inline constexpr const char* DATA_BUS_NAME = "org.vantorix.FTMSAnalysis";
inline constexpr const char* DATA_BUS_PATH = "/org/vantorix/FTMSAnalysis";

class DataBusService : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vantorix.FTMSAnalysis")
public:
    explicit DataBusService(MainWindow* main);
    ~DataBusService() override;  // the name is released

    // Registers on the session bus. Without one (or with the name taken) a
    // console line says so and the program runs on. Returns true when served.
    bool start();

public slots:
    QString Request(const QString& topic, const QString& item);

private:
    MainWindow* main_;
    bool registered_ = false;
};

// SIGTERM and SIGINT end the event loop, so the name is released as at a
// normal exit.
void quit_on_termination_signals();

}  // namespace vx
