// SPDX-License-Identifier: Apache-2.0
#include "ctl/browser.h"

#include "support/literals.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QUrl>

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int patience = 60000; // milliseconds; only so that a hang ends

//! Both ends are held here, so that opening does not wait and nobody finds the pipe closed.
int makePipe(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    if (mkfifo(name.constData(), 0600) != 0) {
        qFatal("cannot make a pipe");
    }
    return open(name.constData(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
}

bool waitFor(int descriptor, short events)
{
    pollfd waiting{descriptor, events, 0};
    return poll(&waiting, 1, patience) == 1;
}

//! What is said in an event of the protocol; null where it is nothing of that kind.
QString textOf(const QString &method, const QJsonObject &parameters)
{
    if (method == "Runtime.exceptionThrown"_s) {
        const QJsonObject details = parameters["exceptionDetails"_s].toObject();
        return details["text"_s].toString() + QLatin1Char(' ')
            + details["exception"_s].toObject()["description"_s].toString();
    }
    if (method == "Runtime.consoleAPICalled"_s) {
        return QString::fromUtf8(QJsonDocument(parameters["args"_s].toArray()).toJson());
    }
    if (method == "Log.entryAdded"_s) {
        return parameters["entry"_s].toObject()["text"_s].toString();
    }
    return method == "Page.javascriptDialogOpening"_s ? "a dialog"_s : QString();
}

} // namespace

QString Browser::program()
{
    return QStandardPaths::findExecutable("chromium"_s);
}

Browser::Browser(const QString &zone)
{
    const QString in = folder.filePath("in"_s);
    const QString out = folder.filePath("out"_s);
    toBrowser = makePipe(in);
    fromBrowser = makePipe(out);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TZ"_s, zone);
    process.setProcessEnvironment(environment);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice()); // where it complains of all it lacks
    // The sandbox is not for root, and a test opens nothing but what it has made itself.
    process.start("/bin/sh"_s,
                  {"-c"_s,
                   "exec chromium --headless=new --no-sandbox --disable-gpu --no-first-run "
                   "--disable-dev-shm-usage --disable-background-networking "
                   "--disable-component-update --host-resolver-rules='MAP * ~NOTFOUND' "
                   "--lang=en-GB --window-size=1440,900 --remote-debugging-pipe "
                   "--user-data-dir=\"$1\" about:blank 3<\"$2\" 4>\"$3\""_s,
                   "sh"_s, folder.filePath("profile"_s), in, out});
    QString target;
    const QJsonArray targets = call("Target.getTargets"_s)["targetInfos"_s].toArray();
    for (int i = 0; i < targets.size(); ++i) {
        const QJsonObject each = targets.at(i).toObject();
        if (each["type"_s].toString() == "page"_s) {
            target = each["targetId"_s].toString();
        }
    }
    session = call("Target.attachToTarget"_s,
                   {{"targetId"_s, target}, {"flatten"_s, true}})["sessionId"_s]
                  .toString();
    for (const QString &domain : {"Page"_s, "Runtime"_s, "Log"_s, "Network"_s}) {
        call(domain + ".enable"_s);
    }
    call("Emulation.setDeviceMetricsOverride"_s,
         {{"width"_s, 1440}, {"height"_s, 900}, {"deviceScaleFactor"_s, 1}, {"mobile"_s, false}});
}

Browser::~Browser()
{
    session.clear();
    call("Browser.close"_s);
    if (!process.waitForFinished(patience)) {
        qFatal("the browser does not end");
    }
    close(toBrowser);
    close(fromBrowser);
}

QJsonObject Browser::receive()
{
    while (!received.contains('\0')) {
        char bytes[65536];
        const ssize_t count = read(fromBrowser, bytes, sizeof bytes);
        if (count > 0) {
            received.append(bytes, int(count));
        } else if (errno != EAGAIN || !waitFor(fromBrowser, POLLIN)) {
            qFatal("the browser does not answer: %s", qPrintable(process.errorString()));
        }
    }
    const auto end = received.indexOf('\0');
    QJsonObject message = QJsonDocument::fromJson(received.left(end)).object();
    received.remove(0, end + 1);
    return message;
}

void Browser::takeNote(const QJsonObject &event)
{
    const QString method = event["method"_s].toString();
    const QJsonObject parameters = event["params"_s].toObject();
    const QString text = textOf(method, parameters);
    if (!text.isNull()) {
        said.append(text);
    }
    if (method == "Network.requestWillBeSent"_s) {
        asked.append(parameters["request"_s].toObject()["url"_s].toString());
    }
}

QJsonObject Browser::call(const QString &method, const QJsonObject &parameters)
{
    QJsonObject message{{"id"_s, ++calls}, {"method"_s, method}, {"params"_s, parameters}};
    if (!session.isEmpty()) {
        message["sessionId"_s] = session;
    }
    QByteArray bytes = QJsonDocument(message).toJson(QJsonDocument::Compact) + '\0';
    while (!bytes.isEmpty()) {
        const ssize_t count = write(toBrowser, bytes.constData(), size_t(bytes.size()));
        if (count > 0) {
            bytes.remove(0, int(count));
        } else if (errno != EAGAIN || !waitFor(toBrowser, POLLOUT)) {
            qFatal("the browser does not listen");
        }
    }
    while (true) {
        const QJsonObject answer = receive();
        if (!answer.contains("id"_s)) {
            takeNote(answer);
        } else if (answer["id"_s].toInt() == calls) {
            if (answer.contains("error"_s)) {
                qFatal("%s: %s", qPrintable(method),
                       qPrintable(answer["error"_s].toObject()["message"_s].toString()));
            }
            return answer["result"_s].toObject();
        }
    }
}

bool Browser::open(const QString &fileName)
{
    said.clear();
    asked.clear();
    call("Page.navigate"_s, {{"url"_s, QUrl::fromLocalFile(fileName).toString()}});
    // The page itself tells when it is ready, as any tool for measuring pages can see.
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < patience) {
        const QJsonValue isReady
            = value("document.readyState === 'complete' && "
                    "performance.getEntriesByName('ready').length > 0 || new Promise("
                    "(resolve) => requestAnimationFrame(() => resolve(false)))"_s);
        if (isReady.toBool()) {
            return true;
        }
    }
    return false;
}

QJsonValue Browser::value(const QString &expression)
{
    const QJsonObject result
        = call("Runtime.evaluate"_s,
               {{"expression"_s, expression}, {"awaitPromise"_s, true}, {"returnByValue"_s, true}});
    if (result.contains("exceptionDetails"_s)) {
        // While a page takes another's place there is nobody to answer.
        said.append(textOf("Runtime.exceptionThrown"_s, result));
    }
    return result["result"_s].toObject()["value"_s];
}

void Browser::press(const QString &key)
{
    QJsonObject event{{"type"_s, "keyDown"_s}, {"key"_s, key}, {"code"_s, key}};
    if (key.size() == 1) {
        event["text"_s] = key;
    } else if (key == "Enter"_s) {
        event["text"_s] = "\r"_s;
        event["windowsVirtualKeyCode"_s] = 13; // without which a button is not pressed
    } else if (key == "Tab"_s) {
        event["windowsVirtualKeyCode"_s] = 9;
    }
    call("Input.dispatchKeyEvent"_s, event);
    event["type"_s] = "keyUp"_s;
    event.remove("text"_s);
    call("Input.dispatchKeyEvent"_s, event);
}

void Browser::mouse(const QString &type, QPoint place, int buttons)
{
    call("Input.dispatchMouseEvent"_s,
         {{"type"_s, type},
          {"x"_s, place.x()},
          {"y"_s, place.y()},
          {"button"_s, "left"_s},
          {"buttons"_s, buttons},
          {"clickCount"_s, 1}});
}

void Browser::drag(QPoint from, QPoint to)
{
    mouse("mouseMoved"_s, from, 0);
    mouse("mousePressed"_s, from, 1);
    mouse("mouseMoved"_s, (from + to) / 2, 1);
    mouse("mouseMoved"_s, to, 1);
    mouse("mouseReleased"_s, to, 0);
}

void Browser::preferDark(bool isDark)
{
    const QJsonObject feature{{"name"_s, "prefers-color-scheme"_s},
                              {"value"_s, isDark ? "dark"_s : "light"_s}};
    call("Emulation.setEmulatedMedia"_s, {{"features"_s, QJsonArray{feature}}});
}

QByteArray Browser::picture()
{
    const QJsonObject answer = call("Page.captureScreenshot"_s, {{"format"_s, "png"_s}});
    return QByteArray::fromBase64(answer["data"_s].toString().toLatin1());
}

QByteArray Browser::pdf()
{
    const QJsonObject answer = call("Page.printToPDF"_s, {{"printBackground"_s, true}});
    return QByteArray::fromBase64(answer["data"_s].toString().toLatin1());
}
