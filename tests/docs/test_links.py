"""Links of the documentation lead somewhere."""

import os
import pathlib

import pytest

from pages import PAGES, SOURCE, anchors_of, links_of


def missing(page, link):
    """Why a link leads nowhere; None when it leads somewhere, or out of the tree."""
    if "://" in link or link.startswith("mailto:"):
        return None
    path, _, anchor = link.partition("#")
    target = pathlib.Path(os.path.normpath(SOURCE / page if not path else (SOURCE / page).parent / path))
    if not target.exists():
        return f"{link}: there is no {target.relative_to(SOURCE)}"
    if anchor and target.suffix == ".md" and anchor not in anchors_of(target.relative_to(SOURCE)):
        return f"{link}: no heading of that name"
    return None


@pytest.mark.parametrize("page", PAGES)
def test_links_lead_somewhere(page):
    assert [why for link in links_of(page) if (why := missing(page, link))] == []


@pytest.mark.parametrize("link, why", [
    ("../README.md", None), ("tsc.md#tsc-verify", None), ("#tsc-verify", None), ("https://example/x", None),
    ("../src", None), ("gone.md", "there is no docs/gone.md"), ("tsc.md#gone", "no heading"), ("#gone", "no heading")])
def test_a_link_that_leads_nowhere_is_told(link, why):
    told = missing("docs/tsc.md", link)
    assert (why is None and told is None) or why in told


def test_every_page_can_be_reached_from_the_first_one():
    reached, next_pages = set(), {"README.md"}
    while next_pages:
        page = next_pages.pop()
        reached.add(page)
        for link in links_of(page):
            path = link.partition("#")[0]
            if "://" not in path and path.endswith(".md"):
                next_pages |= {os.path.normpath(pathlib.Path(page).parent / path)} & set(PAGES) - reached
    assert reached == set(PAGES)
