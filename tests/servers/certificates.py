"""Makes the certificates of the tests: two authorities and four servers.

New keys at every start; nothing of it is trusted by anybody else.
"""

import datetime
import ipaddress
import os

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.x509.oid import ExtendedKeyUsageOID, NameOID

DAY = datetime.timedelta(days=1)
LOCAL_NAMES = [x509.DNSName("localhost"),
               x509.IPAddress(ipaddress.ip_address("127.0.0.1")),
               x509.IPAddress(ipaddress.ip_address("::1"))]


class Identity:
    """A certificate with its key; signed by itself unless an issuer is given."""

    def __init__(self, common_name, issuer=None, names=None, valid_from=-DAY, valid_to=30 * DAY):
        self.key = ec.generate_private_key(ec.SECP256R1())
        subject = x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, common_name)])
        signer = issuer.certificate.subject if issuer else subject
        signing_key = issuer.key if issuer else self.key
        now = datetime.datetime.now(datetime.timezone.utc)
        is_authority = names is None
        builder = (
            x509.CertificateBuilder()
            .subject_name(subject).issuer_name(signer)
            .public_key(self.key.public_key()).serial_number(x509.random_serial_number())
            .not_valid_before(now + valid_from).not_valid_after(now + valid_to)
            .add_extension(x509.BasicConstraints(ca=is_authority, path_length=None), critical=True)
            .add_extension(_key_usage(is_authority), critical=True)
            .add_extension(x509.SubjectKeyIdentifier.from_public_key(self.key.public_key()), False)
            .add_extension(
                x509.AuthorityKeyIdentifier.from_issuer_public_key(signing_key.public_key()), False))
        if not is_authority:
            builder = (
                builder.add_extension(x509.SubjectAlternativeName(names), False)
                .add_extension(x509.ExtendedKeyUsage([ExtendedKeyUsageOID.SERVER_AUTH]), False))
        self.certificate = builder.sign(signing_key, hashes.SHA256())

    def write(self, directory, name):
        """Writes name.pem and name.key; returns both paths."""
        paths = [os.path.join(directory, name + suffix) for suffix in (".pem", ".key")]
        with open(paths[0], "wb") as file:
            file.write(self.certificate.public_bytes(serialization.Encoding.PEM))
        with open(paths[1], "wb", opener=lambda path, flags: os.open(path, flags, 0o600)) as file:
            file.write(self.key.private_bytes(
                serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
                serialization.NoEncryption()))
        return paths


def create(directory):
    """Writes all of them; returns the keys that name the files."""
    os.makedirs(directory, exist_ok=True)
    authority = Identity("http_interface test authority")
    made = {
        "CA": authority,
        "OTHER_CA": Identity("http_interface unrelated test authority"),
        "GOOD_CERT": Identity("localhost", authority, LOCAL_NAMES),
        "EXPIRED_CERT": Identity("localhost", authority, LOCAL_NAMES, -10 * DAY, -DAY),
        "WRONG_HOST_CERT": Identity("wrong.example", authority, [x509.DNSName("wrong.example")]),
        "SELF_SIGNED_CERT": Identity("localhost", None, LOCAL_NAMES),
    }
    keys = {}
    for name, identity in made.items():
        certificate, key = identity.write(directory, name.lower().replace("_", "-"))
        keys[f"{name}_FILE"] = certificate
        if name.endswith("_CERT"):
            keys[f"{name}_KEY_FILE"] = key
    return keys


def _key_usage(is_authority):
    return x509.KeyUsage(
        digital_signature=not is_authority, key_cert_sign=is_authority, crl_sign=is_authority,
        content_commitment=False, key_encipherment=False, data_encipherment=False,
        key_agreement=False, encipher_only=False, decipher_only=False)
