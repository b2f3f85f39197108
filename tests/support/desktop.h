#ifndef DESKTOP_H
#define DESKTOP_H

#include <QPoint>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSize>
#include <QString>

// A screen of its own with a window manager, and a user's hands on it: for programs that run in a
// process of their own.
class Desktop
{
public:
    Desktop() = default;
    ~Desktop();

    Desktop(const Desktop &) = delete;
    Desktop &operator=(const Desktop &) = delete;

    // The first program that a desktop needs and the system does not have; empty when all are here.
    static QString missingProgram();

    bool start(int dotsPerInch = 96);
    // What the desktop's settings tell the programs that are started from now on.
    bool setDotsPerInch(int dotsPerInch) const;

    // The given environment, changed so that a Qt program opens its windows here.
    QProcessEnvironment environment(QProcessEnvironment environment) const;

    // Visible windows whose title is exactly this one.
    int count(const QString &title) const;
    QSize sizeOf(const QString &title) const;
    // Whether this window has the keyboard.
    bool isActive(const QString &title) const;
    // Whether no other window lies above this one.
    bool isInFront(const QString &title) const;

    void resize(const QString &title, const QSize &size) const;
    // A minimized window is not visible.
    void minimize(const QString &title) const;
    void activate(const QString &title) const;
    // At a place relative to the window; a negative one lies on the window manager's frame.
    void click(const QString &title, const QPoint &place) const;
    void doubleClick(const QString &title, const QPoint &place) const;
    // One after the other, in the active window; by the names that X gives to keys.
    void press(const QStringList &keys) const;
    // As the user closes a window from the keyboard, so only the active one.
    void closeActiveWindow() const;

private:
    bool startServer();
    bool startWindowManager();
    QProcessEnvironment ownEnvironment() const;
    QString windowNumber(const QString &title) const;
    QString hands(const QStringList &arguments) const;
    // What the program wrote until its end.
    QString run(const QString &program, const QStringList &arguments) const;

    QProcess server;
    QProcess windowManager;
    QString display;
};

#endif
