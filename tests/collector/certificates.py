"""Certificates of a test's own: an authority, and who it vouches for."""

import subprocess


def certificate(folder, name, common_name, *, names="IP:127.0.0.1", authority="ca"):
    """name.crt and name.key in the folder. One called like its authority is an authority; `names`: of a server, None: its common name is."""
    def openssl(*words):
        subprocess.run(["openssl", *words], cwd=folder, check=True, capture_output=True, timeout=60)
    key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", f"{name}.key", "-subj", f"/CN={common_name}"]
    if name == authority:
        return openssl("req", "-x509", *key, "-out", f"{name}.crt", "-days", "2")
    (folder / "extensions").write_text(f"subjectAltName={names}" if names else "basicConstraints=CA:FALSE")
    openssl("req", *key, "-out", f"{name}.csr")
    return openssl("x509", "-req", "-in", f"{name}.csr", "-CA", f"{authority}.crt", "-CAkey", f"{authority}.key", "-CAcreateserial", "-days", "2",
                   "-extfile", "extensions", "-out", f"{name}.crt")
