#!/usr/bin/python3
"""The handwritten digits beside scikit-learn, and a forward-pass check.

  digits.py compare --train-mlp BIN [--epochs N]
      trains train_mlp on the digits and scikit-learn's MLPClassifier of the
      same shape and optimiser on the same split and scaling, one thread each,
      and prints test accuracy and training time of both.
  digits.py check-forward --train-mlp BIN --work DIR
      trains train_mlp briefly, then runs its saved network forward in float64
      with NumPy on the test images and bounds the difference from the class
      probabilities the library computed. Exits 77 (skipped) without the data.

The digits are those Debian's python3-sklearn installs; this is run by the
system interpreter, /usr/bin/python3, whose modules that package provides.
"""
import argparse
import os
import subprocess
import sys
import time

# One thread for NumPy's BLAS as well, like the library's single-threaded run.
for variable in ("OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ[variable] = "1"

SKIPPED = 77
# The network and optimiser both sides train: two hidden Relu layers, softmax
# output, plain mini-batch gradient descent with momentum, no dropout and no
# weight penalty. The split and scaling are those of train_mlp --digits: every
# fourth image from the first is for testing, pixels are divided by 16.
HIDDEN, BATCH, RATE, MOMENTUM, TEST_EVERY = 64, 32, 0.05, 0.9, 4


def locate_digits():
    """Path of digits.csv.gz, or None when scikit-learn is not installed."""
    try:
        import sklearn
    except ImportError:
        return None
    path = os.path.join(os.path.dirname(sklearn.__file__), "datasets", "data", "digits.csv.gz")
    return path if os.path.isfile(path) else None


def load_split(path):
    import numpy as np

    data = np.loadtxt(path, delimiter=",")
    x, y = data[:, :-1] / 16.0, data[:, -1].astype(int)
    test = np.arange(len(y)) % TEST_EVERY == 0
    return x[~test], y[~test], x[test], y[test]


def run_train_mlp(binary, path, epochs, *extra):
    command = [binary, "--digits", path, "--epochs", str(epochs), "--hidden", str(HIDDEN),
               "--batch", str(BATCH), "--lr", str(RATE), "--momentum", str(MOMENTUM),
               "--dropout", "0", *extra]
    result = subprocess.run(command, check=True, capture_output=True, text=True)
    last = result.stdout.strip().splitlines()[-1]
    # "test accuracy 98.7% (chance 10.0%), trained in 0.11 s"
    accuracy = float(last.split()[2].rstrip("%"))
    seconds = float(last.split()[-2])
    return accuracy, seconds


def compare(args):
    path = locate_digits()
    if path is None:
        print("digits: python3-sklearn is not installed, no digits to train on")
        return 1
    import numpy as np
    import sklearn
    from sklearn.exceptions import ConvergenceWarning
    from sklearn.neural_network import MLPClassifier
    import warnings

    ours = run_train_mlp(args.train_mlp, path, args.epochs)
    x_train, y_train, x_test, y_test = load_split(path)
    peer = MLPClassifier(hidden_layer_sizes=(HIDDEN, HIDDEN), activation="relu", solver="sgd",
                         batch_size=BATCH, learning_rate="constant", learning_rate_init=RATE,
                         momentum=MOMENTUM, nesterovs_momentum=False, alpha=0.0,
                         max_iter=args.epochs, tol=0.0, n_iter_no_change=args.epochs + 1,
                         shuffle=True, random_state=1)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", ConvergenceWarning)
        start = time.perf_counter()
        peer.fit(x_train, y_train)
        seconds = time.perf_counter() - start
    accuracy = 100.0 * np.mean(peer.predict(x_test) == y_test)

    print(f"digits: {len(y_train)} training and {len(y_test)} test images, network "
          f"64-{HIDDEN}-{HIDDEN}-10 (Relu, softmax), SGD with momentum {MOMENTUM}, "
          f"rate {RATE}, batch {BATCH}, {args.epochs} epochs, one thread")
    print(f"  numbra train_mlp (float, ISA_FMA)    test accuracy {ours[0]:5.1f}%  "
          f"trained in {ours[1]:6.2f} s")
    print(f"  scikit-learn {sklearn.__version__:8} MLPClassifier  test accuracy {accuracy:5.1f}%  "
          f"trained in {seconds:6.2f} s")
    return 0


def check_forward(args):
    path = locate_digits()
    if path is None:
        print("SKIPPED: python3-sklearn is not installed (no digits.csv.gz); "
              "apt-get install python3-sklearn runs this check")
        return SKIPPED
    import numpy as np

    os.makedirs(args.work, exist_ok=True)
    model = os.path.join(args.work, "digits_model.txt")
    run_train_mlp(args.train_mlp, path, 3, "--save-model", model)

    blocks = {}
    with open(model) as f:
        lines = iter(f)
        for header in lines:
            name, rows, cols = header.split()
            values = [next(lines) for _ in range(int(rows))]
            blocks.setdefault(name, []).append(np.loadtxt(values, ndmin=2))
    _, _, x_test, _ = load_split(path)
    h = x_test
    for i, (w, b) in enumerate(zip(blocks["weights"], blocks["biases"])):
        h = h @ w + b
        if i + 1 < len(blocks["weights"]):
            h = np.maximum(h, 0.0)
    h = np.exp(h - h.max(axis=1, keepdims=True))
    expected = h / h.sum(axis=1, keepdims=True)
    library = blocks["probabilities"][0]
    if library.shape != expected.shape:
        print(f"FAILED: the library gave {library.shape} probabilities, NumPy {expected.shape}")
        return 1
    # The library runs in float: each output carries rounding errors of a few
    # float ulps through three layers of up to 64 terms, far below 1e-4; a
    # wrong weight, bias, stride or test row moves probabilities by ~1e-1.
    bound = 1e-4
    difference = np.abs(library - expected).max()
    print(f"largest difference of {library.size} class probabilities, library (float) against "
          f"NumPy (float64): {difference:.2e} (bound {bound:.0e})")
    return 0 if difference <= bound else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    commands = parser.add_subparsers(dest="command", required=True)
    for name in ("compare", "check-forward"):
        command = commands.add_parser(name)
        command.add_argument("--train-mlp", required=True, help="path of the train_mlp program")
    commands.choices["compare"].add_argument("--epochs", type=int, default=50)
    commands.choices["check-forward"].add_argument("--work", required=True,
                                                   help="folder for the saved network")
    args = parser.parse_args()
    return compare(args) if args.command == "compare" else check_forward(args)


if __name__ == "__main__":
    sys.exit(main())
