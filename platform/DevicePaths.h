#pragma once

#include <QString>

/// Every absolute path of the device, formed below the device root.
///
/// The device root is the directory named by the environment variable VYX_DEVICE_ROOT; unset or empty means
/// "/", as on a device. Directories are returned without a trailing slash.
namespace DevicePaths {

/// The device root without a trailing slash; empty when it is "/".
QString root();

/// Parent of the modules' data directories.
QString dataRoot();

/// Data directory of one module.
QString moduleData(const QString &module);

/// Marker file whose existence switches the developer mode on.
QString developerModeMarker();

/// Description of what one module has saved, restored and reset.
QString restorableDescription(const QString &module);

/// Directory in which a save builds what the repository is to receive, and a file in it.
QString stagingRoot();
QString staged(const QString &name);

/// Directory that receives what is fetched from the repository, and a file in it.
QString restoreDirectory();
QString fetched(const QString &name);

/// File of the service's own that holds the digests which the modules' data had.
QString rememberedDigests();

/// File of the service's own that says how the last operations ended.
QString lastOperations();

/// File of the service's own that names the modules of which a restore is replacing data.
QString restoreNote();

/// Directory of the service's own in which saved databases are tried.
QString trialDirectory();

/// File that names the processes asked to pause while a save or restore runs.
QString pauseRecord();

/// Tool that tells where the device's certificates are and whether its trust list is deployed.
QString getVYXinfo();

/// Program that migrates the data of one module.
QString migrationProgram(const QString &module);

/// Directory of the middleware's own configuration.
QString configurationRoot();

/// Directory of the middleware's programs.
QString libraryRoot();

} // namespace DevicePaths
