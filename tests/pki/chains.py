"""Signer chains: good ones, and those that a unit must refuse."""

from bench.authority import DAY, SIGNER_CN, Entity, issue, name, now, p256, p384, rsa_key, write, write_chain

ROOT_CN = "Truststore Tests Root"
ROOT_NAME = name(ROOT_CN)


def signer(issuer, subject=None, **options):
    return issue(subject or name(SIGNER_CN), issuer=issuer, ca=False, end=options.pop("end", now() + 365 * DAY),
                 **options)


def line(root, length, new_key=p256):
    """A chain of `length` certificates below `root`: leaf first, without the root."""
    chain = []
    issuer = root
    for number in range(1, length):
        issuer = issue(name(f"Intermediate {number}"), issuer=issuer, key=new_key())
        chain.insert(0, issuer)
    return signer(issuer), chain


def write_good_chains(out, root):
    for length in (1, 2, 3, 5):
        leaf, rest = line(root, length)
        write_chain(out / f"p256-{length}", leaf, rest, [root])
    for folder, length, new_key in (("p384-3", 3, p384), ("rsa3072-2", 2, lambda: rsa_key(3072))):
        own_root = issue(name(f"Root of {folder}"), key=new_key())
        write_chain(out / folder, *line(own_root, length, new_key), [own_root])
    leaf, rest = line(root, 2)
    write_chain(out / "with-root-3", leaf, [*rest, root], [root])


def write_cross_chain(out):
    """The first root's name and key, certified by a second root: the old signers go on under the new root."""
    first = issue(name("First Root"))
    second = issue(name("Second Root"))
    cross = issue(first.cert.subject, issuer=second, key=first.key)
    intermediate = issue(name("Intermediate 1"), issuer=first)
    folder = out / "cross-3"
    write_chain(folder, signer(intermediate), [intermediate, cross], [second])
    write(folder / "first-root.pem", first.pem())
    crossed = issue(intermediate.cert.subject, issuer=second, key=intermediate.key)
    write(folder / "intermediate-by-second-root.der", crossed.der())


def write_bad_chains(out, root):
    weak_root = issue(name("Root of rsa2048-2"), key=rsa_key(2048))
    write_chain(out / "rsa2048-2", *line(weak_root, 2, lambda: rsa_key(2048)), [weak_root])

    past = {"begin": now() - 30 * DAY, "end": now() - DAY}
    future = {"begin": now() + 30 * DAY, "end": now() + 365 * DAY}
    good = issue(name("Intermediate 1"), issuer=root)
    for prefix, period in (("expired", past), ("notyet", future)):
        out_of_date = issue(name("Intermediate 1"), issuer=root, **period)
        write_chain(out / f"{prefix}-leaf-2", signer(good, **period), [good], [root])
        write_chain(out / f"{prefix}-ca-2", signer(out_of_date), [out_of_date], [root])

    no_ca = issue(name("Intermediate 1"), issuer=root, ca_bit=False)
    write_chain(out / "ca-bit-missing-2", signer(no_ca), [no_ca], [root])
    stranger = issue(name("Intermediate 1"), issuer=root)
    stranger = Entity(p256(), stranger.cert)
    write_chain(out / "forged-leaf-2", signer(stranger), [stranger], [root])


def write_roots(out, root):
    write(out / "root.pem", root.pem())
    write(out / "other-root" / "same-name.pem", issue(ROOT_NAME).pem())
    write(out / "other-root" / "other-name.pem", issue(name("Unrelated Root")).pem())


def write_common_names(out, root):
    """Leaves directly under the root; only their subject differs."""
    subjects = {
        "cn-wrong": ["OTHER Signer"],
        "cn-prefix-not-first": ["xKALVIRON TSC Signer 1"],
        "cn-lower-case": ["kalviron TSC Signer 1"],
        "cn-exact": ["KALVIRON"],
        "cn-prefix-cut": ["KALVIRO"],
        "cn-two-parts": ["KALVIRON", "x"],
        "cn-two-split-prefix": ["KALV", "IRON 7"],
        "cn-two-second-matches": ["OTHER", "KALVIRON"],
        "cn-line-feed": ["KALVIRON one\ntwo"],
        "cn-carriage-return": ["KALVIRON one\rtwo"],
        "cn-line-separator": ["KALVIRON one\u2028two"],
        "cn-missing": [],
    }
    for characters in (3000, 100_000):
        subjects[f"cn-{characters}"] = ["KALVIRON".ljust(characters, "x")]
    for folder, common_names in subjects.items():
        write_chain(out / folder, signer(root, name(*common_names)), [], [root])


def write_same_subject(out, root):
    """Key rollovers inside one intermediate CA: each certificate is issued by the next one of the same name."""
    for folder, count in (("same-subject-2", 2), ("same-subject-3", 3)):
        issuers = [issue(name("Intermediate 1"), issuer=root)]
        while len(issuers) < count:
            issuers.insert(0, issue(name("Intermediate 1"), issuer=issuers[0]))
        write_chain(out / folder, signer(issuers[0]), issuers, [root])


def write_shared_subjects(out, root):
    """The same in several intermediate CAs, one above the other."""
    for count in (3, 4):
        issuers = [root]
        for number in range(count):
            for _ in range(2):
                issuers.insert(0, issue(name(f"Intermediate {number}"), issuer=issuers[0]))
        issuers.pop()
        write_chain(out / f"shared-subjects-{count}", signer(issuers[0]), issuers, [root])


def write_path_explosion(out, root):
    """Eight keys under the root's name, without key identifiers: every one may have issued every other."""
    keys = [p256() for _ in range(8)]
    impostors = [issue(ROOT_NAME, key=key, key_ids=False) for key in keys]
    write_chain(out / "root-name-8", signer(impostors[0], key_ids=False), impostors, [root])


def write_path_explosion_by_case(out, root):
    """The same with the root's name in eight spellings that are equal but for case, and between them in the order of
    bytes seven names that are not: a map ordered by the library's names takes the eight for different."""
    spellings = sorted(a + b + c + ROOT_CN[3:] for a in "Tt" for b in "Rr" for c in "Uu")
    separators = [name(spelling + "!") for spelling in spellings[:-1]]
    others = [issue(separators[i]) for i in (3, 1, 5, 0, 2, 4, 6)]
    impostors = [issue(name(spelling), key=p256(), key_ids=False) for spelling in spellings]
    write_chain(out / "root-name-spelt-8", signer(impostors[0], key_ids=False), others + impostors, [root])


def write_all(out):
    root = issue(ROOT_NAME)
    write_roots(out, root)
    write_good_chains(out, root)
    write_cross_chain(out)
    write_bad_chains(out, root)
    write_common_names(out, root)
    write_same_subject(out, root)
    write_shared_subjects(out, root)
    write_path_explosion(out, root)
    write_path_explosion_by_case(out, root)
