#pragma once

class QDBusAbstractAdaptor;
class QObject;

// The adaptors as they are put on the bus, children of `module`, which must be a `QDBusContext`. What a
// method throws becomes an error reply.

/// The interface of the middleware, com.corvane.Pelorin.VYXInterface.
QDBusAbstractAdaptor *createSaveRestoreAdaptor(QObject *module);

/// The control interface, com.corvane.Pelorin.SaveRestoreControl1. The module has its methods as slots, its
/// signal, and its properties as properties of the same names.
QDBusAbstractAdaptor *createControlAdaptor(QObject *module);
