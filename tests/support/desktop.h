#ifndef DESKTOP_H
#define DESKTOP_H

#include <QPoint>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSize>
#include <QString>

// A separate display with a window manager, and a user's hands on it, for programs in other
// processes.
class Desktop
{
public:
    Desktop() = default;
    ~Desktop();

    Desktop(const Desktop &) = delete;
    Desktop &operator=(const Desktop &) = delete;

    // The first program that a desktop needs and that is not installed; empty if all are.
    static QString missingProgram();

    bool start(int dotsPerInch = 96);
    // The desktop's setting for programs that are started from now on.
    bool setDotsPerInch(int dotsPerInch) const;

    // The given environment, changed so that a Qt program opens its windows here.
    QProcessEnvironment environment(QProcessEnvironment environment) const;

    // Visible windows whose title is exactly this one.
    int count(const QString &title) const;
    QSize sizeOf(const QString &title) const;
    // Whether this window has the keyboard.
    bool isActive(const QString &title) const;
    // Whether no other window is above this one.
    bool isInFront(const QString &title) const;

    void resize(const QString &title, const QSize &size) const;
    // A minimized window is not visible.
    void minimize(const QString &title) const;
    void activate(const QString &title) const;
    // At a place relative to the window; negative coordinates are in the window manager's frame.
    void click(const QString &title, const QPoint &place) const;
    void doubleClick(const QString &title, const QPoint &place) const;
    // One after the other, in the active window; by the names that X gives to keys.
    void press(const QStringList &keys) const;
    // As a user closes the active window from the keyboard.
    void closeActiveWindow() const;

private:
    QProcessEnvironment ownEnvironment() const;
    QString windowNumber(const QString &title) const;
    QString hands(const QStringList &arguments) const;
    // What the program wrote before it ended.
    QString run(const QString &program, const QStringList &arguments) const;

    QProcess server;
    QString display;
};

#endif
