#include "bench/FleetServer.h"

#include "repository/HttpTransfer.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TestDevice.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <memory>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <unistd.h>

namespace {

constexpr int years = 10;
constexpr long year = 365L * 24 * 3600;

template <auto free> struct Freeing
{
    template <typename Thing> void operator()(Thing *thing) const { free(thing); }
};
using Certificate = std::unique_ptr<X509, Freeing<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Freeing<EVP_PKEY_free>>;
using Memory = std::unique_ptr<BIO, Freeing<BIO_free>>;

Memory memoryOf(const QByteArray &text)
{
    return Memory(BIO_new_mem_buf(text.constData(), static_cast<int>(text.size())));
}

Certificate certificateIn(const QString &path)
{
    return Certificate(PEM_read_bio_X509(memoryOf(readFile(path)).get(), nullptr, nullptr, nullptr));
}

Key keyIn(const QString &path)
{
    return Key(PEM_read_bio_PrivateKey(memoryOf(readFile(path)).get(), nullptr, nullptr, nullptr));
}

} // namespace

FleetServer::FleetServer()
{
    QTcpServer free;
    free.listen(QHostAddress::LocalHost);
    port = free.serverPort();
    free.close();
    const QString root = directory.path();
    TestDevice::shell(
        QString("mkdir -p %1/log %1/tmp %1/repositories/save %1/repositories/tmp; "
                "sed -e s/@PORT@/%2/ -e s,@PKI@,%3, -e s/@FILES@/20000/ %4/device/server/fleet.conf.in "
                ">%1/nginx.conf")
            .arg(root, QString::number(port), QFileInfo(NginxServer::pki("ca.pem")).path(), SOURCES));
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    const QString user = geteuid() == 0 ? "user root;" : "";
    process.start("/usr/sbin/nginx",
                  {"-p", root + "/", "-c", root + "/nginx.conf", "-e", root + "/log/error.log", "-g", user});
    TestDevice::waitUntil([this] {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, port);
        return socket.waitForConnected(200) || process.state() == QProcess::NotRunning;
    });
}

FleetServer::~FleetServer()
{
    TestDevice::end(process);
}

QByteArray FleetServer::url(int device) const
{
    return QString("https://127.0.0.1:%1/save/%2").arg(port).arg(device).toUtf8();
}

TlsIdentity FleetServer::identity(int device) const
{
    const Certificate authority = certificateIn(NginxServer::pki("ca.pem"));
    const Key signer = keyIn(NginxServer::pki("ca.key"));
    const Key key = keyIn(NginxServer::pki("device.key"));
    const Certificate made(X509_new());
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), 1000000 + device);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -year);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), years * year);
    const QByteArray name = "device " + QByteArray::number(device);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char *>(name.constData()), -1, -1, 0);
    X509_set_issuer_name(made.get(), X509_get_subject_name(authority.get()));
    X509_set_pubkey(made.get(), key.get());
    X509_sign(made.get(), signer.get(), EVP_sha256());
    const Memory text(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(text.get(), made.get());
    char *bytes = nullptr;
    const long size = BIO_get_mem_data(text.get(), &bytes);
    return {QByteArray(bytes, size),
            readFile(NginxServer::pki("device.key")),
            readFile(NginxServer::pki("ca.pem")),
            {}};
}

void FleetServer::clear() const
{
    TestDevice::shell("rm -rf " + directory.path() + "/repositories/save; mkdir " + directory.path() +
                      "/repositories/save");
}

QList<QByteArray> FleetServer::processes() const
{
    const QByteArray parent = QByteArray::number(process.processId());
    return readFile("/proc/" + parent + "/task/" + parent + "/children").simplified().split(' ') << parent;
}

double FleetServer::processorTime() const
{
    double seconds = 0;
    for (const QByteArray &one : processes()) {
        const QByteArray stat = readFile("/proc/" + one + "/stat");
        const QByteArrayList fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
        seconds += (fields.value(11).toDouble() + fields.value(12).toDouble()) / double(sysconf(_SC_CLK_TCK));
    }
    return seconds;
}

double FleetServer::memory() const
{
    double pages = 0;
    for (const QByteArray &one : processes()) {
        pages += readFile("/proc/" + one + "/statm").split(' ').value(1).toDouble();
    }
    return pages * double(sysconf(_SC_PAGESIZE));
}
