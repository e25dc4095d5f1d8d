"""Random operations compared with a model; `scripts/torture model` runs more of them."""

import random
import sys
import unittest

import support

sys.path.insert(0, str(support.PROJECT / "tests" / "torture"))

import model  # noqa: E402
import torture  # noqa: E402


class TestModel(unittest.TestCase):
    def test_random_operations_agree_with_the_model_also_after_reopening(self):
        for _ in range(6):
            seed = random.randrange(1 << 30)
            with self.subTest(seed=seed), torture.folder() as folder:
                model.run_one(seed, folder, 500)
