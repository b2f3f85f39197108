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

    bool start();

    // The given environment, changed so that a Qt program opens its windows here.
    QProcessEnvironment environment(QProcessEnvironment environment) const;

    // Visible windows whose title is exactly this one.
    int count(const QString &title) const;
    QSize sizeOf(const QString &title) const;

    void resize(const QString &title, const QSize &size) const;
    // At a place relative to the window; a negative one lies on the window manager's frame.
    void click(const QString &title, const QPoint &place) const;
    void doubleClick(const QString &title, const QPoint &place) const;
    // As the user closes a window from the keyboard, so only the active one.
    void closeActiveWindow() const;

private:
    QString windowNumber(const QString &title) const;
    QString hands(const QStringList &arguments) const;

    QProcess server;
    QProcess windowManager;
    QString display;
};

#endif
