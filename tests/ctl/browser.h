// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QPoint>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <utility>

/*!
 * A real browser without a window, spoken to by its debugging protocol over a pair of
 * pipes. Whatever fails in speaking to it ends the test.
 */
class Browser
{
public:
    //! The executable; empty where there is none.
    static QString program();

    //! In a time zone.
    explicit Browser(const QString &zone);
    ~Browser();
    Q_DISABLE_COPY_MOVE(Browser)

    //! Opens a page and waits until it has shown its data; false where it does not.
    [[nodiscard]] bool open(const QString &fileName);
    //! The value of an expression in the page; that of a promise once it is there.
    QJsonValue value(const QString &expression);
    //! Presses and releases a key, such as "Enter" or "a".
    void press(const QString &key);
    //! Moves the mouse with its button down, in pixels of the window.
    void drag(QPoint from, QPoint to);
    //! Whether the system prefers dark colours.
    void preferDark(bool isDark);
    //! A picture of the window, as PNG.
    QByteArray picture();
    //! The page as it is printed.
    QByteArray pdf();

    //! What the page has said on the console since it was opened, and what went wrong there.
    [[nodiscard]] QStringList problems() const { return said; }
    //! The same, for those that are wanted.
    [[nodiscard]] QStringList takeProblems() { return std::exchange(said, {}); }
    //! All that the page has asked for, itself included.
    [[nodiscard]] QStringList requests() const { return asked; }

private:
    QJsonObject call(const QString &method, const QJsonObject &parameters = {});
    QJsonObject receive();
    void takeNote(const QJsonObject &event);
    void mouse(const QString &type, QPoint place, int buttons);

    QTemporaryDir folder;
    QProcess process;
    int toBrowser = -1;
    int fromBrowser = -1;
    QByteArray received;
    QString session;
    int calls = 0;
    QStringList said;
    QStringList asked;
};
